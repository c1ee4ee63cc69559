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
// written as U+FFFD. No operation throws because of the document's shape: reading a missing value returns false, 0, ""
// or no strings; writing below a value that is not an object replaces that value by an object. Only one thread may use
// a document at a time.
class JsonValue {
public:
    explicit JsonValue(TagJsonType type);
    JsonValue(const JsonValue& other) = default;
    ~JsonValue();

    // Assigning one handle to another would look like writing a value, but would not write one.
    JsonValue& operator=(const JsonValue&) = delete;

    // Returns a handle on the member, which need not exist. Assigning to the handle creates it.
    JsonValue operator[](const char* key);

    JsonValue& operator=(const char* text);  // null writes the empty string
    JsonValue& operator=(const std::string& text);
    JsonValue& operator=(int number);

    void TypeChangeToArray();  // an array is unchanged, any other value becomes an empty array

    // Appends a copy of item's value. A value that is not an array becomes an empty array first.
    void JsonItemAddToArray(const JsonValue& item);
    // Adds or replaces a member that has a copy of item's value.
    void JsonItemAddToObject(const char* key, const JsonValue& item);

    bool IsMember(const char* key) const;
    bool IsInt() const;  // a whole number in the range of int, written without fraction or exponent
    bool IsArray() const;

    int AsInt(const char* key) const;             // 0 unless the member is an int
    std::string AsString(const char* key) const;  // empty unless the member is a string
    // Returns the strings of the named array in order; elements of other types are skipped.
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
    // Parses text into the value. Returns false, logs the reason and leaves the value unchanged if the text is not
    // valid JSON, is longer than 1 MiB or nests deeper than 64 levels.
    bool Parse(const std::string& text, JsonValue& value) const;
};

class JsonStreamWriter {
public:
    explicit JsonStreamWriter(bool indent);

    // Serialises to valid UTF-8, on one line or, if the writer was made with indent, indented. Returns true.
    bool Write(const JsonValue& value, std::string& text) const;

private:
    bool indent_;
};

}  // namespace TavUtils::JsonAdaptor
