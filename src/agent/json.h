// JSON documents: building events and reading configurations.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace TavUtils::JsonAdaptor {

enum TagJsonType : int {
    JSON_OBJECT = 6,
};

struct JsonDocument;

// A handle on one value of a document. Copies are handles on the same value; the document lives as long as any handle.
// Members keep the order in which they were first written. Bytes that are not UTF-8 are kept in the document and
// written as U+FFFD. No operation throws on the document's shape: a read of what is not there gives the empty answer
// (false, 0, "", no strings), a write below a value that is not an object replaces that value by an object.
// A document must not be used by two threads at once.
class JsonValue {
public:
    explicit JsonValue(TagJsonType type);
    JsonValue(const JsonValue& other) = default;
    ~JsonValue();

    // Assigning one handle to another would read as writing a value and do something else.
    JsonValue& operator=(const JsonValue&) = delete;

    // A handle on the member, which need not exist: assigning to the handle brings it into being.
    JsonValue operator[](const char* key);

    JsonValue& operator=(const char* text);  // null writes the empty string
    JsonValue& operator=(const std::string& text);
    JsonValue& operator=(int number);

    void TypeChangeToArray();  // an array stays as it is; anything else becomes an empty array

    // Appends a copy of item's value; a value that is not an array becomes one first.
    void JsonItemAddToArray(const JsonValue& item);
    // Adds, or replaces, a member that holds a copy of item's value.
    void JsonItemAddToObject(const char* key, const JsonValue& item);

    bool IsMember(const char* key) const;
    bool IsInt() const;  // a whole number within the range of int, written without fraction or exponent
    bool IsArray() const;

    int AsInt(const char* key) const;             // 0 unless the member is an int
    std::string AsString(const char* key) const;  // empty unless the member is a string
    // The named array's strings in order; elements of other types are skipped.
    std::vector<std::string> GetJsonStringArray(const char* key) const;

private:
    friend class JsonCharReader;
    friend class JsonStreamWriter;

    std::shared_ptr<JsonDocument> document_;
    std::vector<std::string> path_;  // from the document's root to the value

    JsonValue(std::shared_ptr<JsonDocument> document, std::vector<std::string> path);
};

class JsonCharReader {
public:
    // Parses text into the value. False, with one log line that says why and the value unchanged, if the text is not
    // valid JSON, is longer than 1 MiB or nests deeper than 64 levels.
    bool Parse(const std::string& text, JsonValue& value) const;
};

class JsonStreamWriter {
public:
    explicit JsonStreamWriter(bool indent);

    // Serialises to one line of valid UTF-8, or indented when the writer was made so. Returns true.
    bool Write(const JsonValue& value, std::string& text) const;

private:
    bool indent_;
};

}  // namespace TavUtils::JsonAdaptor
