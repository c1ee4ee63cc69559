// JSON of an event as tests look at it. The parser stays in one source: each that uses it takes seconds to compile.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

// A JSON value, kept as its compact text; keys keep their order. Fails by an exception where the value is of another
// kind than the call asks for, or not there.
class EventJson {
public:
    static EventJson Parse(const std::string& text);

    EventJson operator[](const std::string& key) const;
    EventJson operator[](size_t index) const;
    std::string Text() const;
    int Number() const;
    // Of an object or an array.
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
