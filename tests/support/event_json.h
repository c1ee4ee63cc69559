// JSON of an event, for tests. The parser is used in one source only: it adds seconds to the compilation of each.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

// A JSON value, stored as its compact text with keys in order. Functions throw if the value is missing or has another
// type than they need.
class EventJson {
public:
    static EventJson Parse(const std::string& text);

    EventJson operator[](const std::string& key) const;
    EventJson operator[](size_t index) const;
    std::string Text() const;
    int Number() const;
    // Throws unless the value is an object or an array.
    size_t Size() const;
    std::vector<std::string> Keys() const;
    const std::string& Dump() const { return compact; }

    friend bool operator==(const EventJson& value, const EventJson& other) { return value.compact == other.compact; }
    friend bool operator==(const EventJson& value, const std::string& text);
    friend bool operator==(const EventJson& value, const char* text) { return value == std::string(text); }
    friend bool operator==(const EventJson& value, long long number);
    friend bool operator==(const EventJson& value, int number) { return value == static_cast<long long>(number); }
    friend std::ostream& operator<<(std::ostream& stream, const EventJson& value) { return stream << value.compact; }

private:
    std::string compact = "null";
};
