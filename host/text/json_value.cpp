#include <limits>
#include <utility>

#include "host/text/json_document.h"

namespace TavUtils::JsonAdaptor {

namespace {

using Path = std::vector<std::string>;

std::string KeyOf(const char* key) {
    return key == nullptr ? std::string() : std::string(key);
}

const Json* FindMember(const Json* value, const std::string& key) {
    if (value == nullptr || !value->is_object()) {
        return nullptr;
    }
    const auto member = value->find(key);
    return member == value->end() ? nullptr : &*member;
}

const Json* Find(const JsonDocument& document, const Path& path, const char* key) {
    return key == nullptr ? nullptr : FindMember(Find(document, path), key);
}

// A copy, because a write elsewhere in the same document may move or destroy the value.
Json CopyOf(const JsonDocument& document, const Path& path) {
    const Json* value = Find(document, path);
    return value == nullptr ? Json() : *value;
}

bool IsIntValue(const Json* value) {
    if (value == nullptr || !value->is_number_integer()) {
        return false;
    }
    if (value->is_number_unsigned()) {
        return value->get<Json::number_unsigned_t>() <= static_cast<unsigned int>(std::numeric_limits<int>::max());
    }
    const auto number = value->get<Json::number_integer_t>();
    return number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
}

}  // namespace

const Json* Find(const JsonDocument& document, const Path& path) {
    const Json* value = &document.root;
    for (const std::string& key : path) {
        value = FindMember(value, key);
    }
    return value;
}

Json& FindOrCreate(JsonDocument& document, const Path& path) {
    Json* value = &document.root;
    for (const std::string& key : path) {
        if (!value->is_object()) {
            *value = Json::object();
        }
        value = &(*value)[key];
    }
    return *value;
}

JsonValue::JsonValue(TagJsonType /*type*/) : document_(std::make_shared<JsonDocument>()) {
    document_->root = Json::object();
}

JsonValue::JsonValue(std::shared_ptr<JsonDocument> document, Path path)
    : document_(std::move(document)), path_(std::move(path)) {}

JsonValue::~JsonValue() = default;

JsonValue JsonValue::operator[](const char* key) {
    Path path = path_;
    path.push_back(KeyOf(key));
    return {document_, std::move(path)};
}

JsonValue& JsonValue::operator=(const char* text) {
    FindOrCreate(*document_, path_) = KeyOf(text);
    return *this;
}

JsonValue& JsonValue::operator=(const std::string& text) {
    FindOrCreate(*document_, path_) = text;
    return *this;
}

JsonValue& JsonValue::operator=(int number) {
    FindOrCreate(*document_, path_) = number;
    return *this;
}

void JsonValue::TypeChangeToArray() {
    Json& value = FindOrCreate(*document_, path_);
    if (!value.is_array()) {
        value = Json::array();
    }
}

void JsonValue::JsonItemAddToArray(const JsonValue& item) {
    Json copy = CopyOf(*item.document_, item.path_);
    TypeChangeToArray();
    FindOrCreate(*document_, path_).push_back(std::move(copy));
}

void JsonValue::JsonItemAddToObject(const char* key, const JsonValue& item) {
    Json copy = CopyOf(*item.document_, item.path_);
    Path path = path_;
    path.push_back(KeyOf(key));
    FindOrCreate(*document_, path) = std::move(copy);
}

bool JsonValue::IsMember(const char* key) const {
    return Find(*document_, path_, key) != nullptr;
}

bool JsonValue::IsInt() const {
    return IsIntValue(Find(*document_, path_));
}

bool JsonValue::IsArray() const {
    const Json* value = Find(*document_, path_);
    return value != nullptr && value->is_array();
}

int JsonValue::AsInt(const char* key) const {
    const Json* value = Find(*document_, path_, key);
    return IsIntValue(value) ? value->get<int>() : 0;
}

std::string JsonValue::AsString(const char* key) const {
    const Json* value = Find(*document_, path_, key);
    return value != nullptr && value->is_string() ? value->get_ref<const std::string&>() : std::string();
}

std::vector<std::string> JsonValue::GetJsonStringArray(const char* key) const {
    std::vector<std::string> strings;
    const Json* value = Find(*document_, path_, key);
    if (value == nullptr || !value->is_array()) {
        return strings;
    }
    for (const Json& element : *value) {
        if (element.is_string()) {
            strings.push_back(element.get_ref<const std::string&>());
        }
    }
    return strings;
}

}  // namespace TavUtils::JsonAdaptor
