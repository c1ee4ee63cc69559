#include "agent/json.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "host/base/log.h"

namespace TavUtils::JsonAdaptor {

using Json = nlohmann::ordered_json;

struct JsonDocument {
    Json root;
};

namespace {

using Path = std::vector<std::string>;

constexpr size_t maxTextBytes = 1024 * 1024;
constexpr size_t maxDepth = 64;
constexpr int indentWidth = 4;

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

const Json* Find(const JsonDocument& document, const Path& path) {
    const Json* value = &document.root;
    for (const std::string& key : path) {
        value = FindMember(value, key);
    }
    return value;
}

const Json* Find(const JsonDocument& document, const Path& path, const char* key) {
    return key == nullptr ? nullptr : FindMember(Find(document, path), key);
}

Json& BringIntoBeing(JsonDocument& document, const Path& path) {
    Json* value = &document.root;
    for (const std::string& key : path) {
        if (!value->is_object()) {
            *value = Json::object();
        }
        value = &(*value)[key];
    }
    return *value;
}

// A copy, because writing elsewhere in the same document may move the value or be the end of it.
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

// Builds the tree as the parser walks the text, so that what nests too deep is refused before it is built. The
// library's own builder looks for a member's key among all the members before it: a text of many members, well within
// the size limit, would hold the agent for minutes.
class TreeBuilder {
public:
    bool null() { return Add(nullptr); }
    bool boolean(bool value) { return Add(value); }
    bool number_integer(Json::number_integer_t value) { return Add(value); }
    bool number_unsigned(Json::number_unsigned_t value) { return Add(value); }
    bool number_float(Json::number_float_t value, const Json::string_t& /*text*/) { return Add(value); }
    bool string(Json::string_t& value) { return Add(std::move(value)); }
    bool binary(Json::binary_t& /*value*/) { return false; }
    bool start_object(size_t /*size*/) { return Open(Json::object()); }
    bool end_object() { return Close(); }
    bool start_array(size_t /*size*/) { return Open(Json::array()); }
    bool end_array() { return Close(); }

    bool key(Json::string_t& key) {
        open_.back().key = std::move(key);
        return true;
    }

    bool parse_error(size_t position, const std::string& /*token*/, const Json::exception& error) {
        errorPosition_ = position;
        error_ = error.what();
        return false;
    }

    bool IsTooDeep() const { return isTooDeep_; }
    const std::string& Error() const { return error_; }
    size_t ErrorPosition() const { return errorPosition_; }
    Json TakeRoot() { return std::move(root_); }

private:
    struct Level {
        Json* container;
        std::string key;
        std::map<std::string, size_t> members;
    };

    Json& Place(Json value) {
        if (open_.empty()) {
            root_ = std::move(value);
            return root_;
        }
        Level& level = open_.back();
        if (level.container->is_array()) {
            return level.container->get_ref<Json::array_t&>().emplace_back(std::move(value));
        }
        auto& members = level.container->get_ref<Json::object_t&>();
        const auto [member, isNew] = level.members.try_emplace(level.key, members.size());
        if (isNew) {
            return members.emplace_back(std::move(level.key), std::move(value)).second;
        }
        return members.begin()[static_cast<std::ptrdiff_t>(member->second)].second = std::move(value);
    }

    bool Add(Json value) {
        Place(std::move(value));
        return true;
    }

    bool Open(Json container) {
        isTooDeep_ = open_.size() == maxDepth;
        if (isTooDeep_) {
            return false;
        }
        // The address stays good: the container around this one gets no further value before this one is closed.
        open_.push_back({&Place(std::move(container)), {}, {}});
        return true;
    }

    bool Close() {
        open_.pop_back();
        return true;
    }

    Json root_;
    std::vector<Level> open_;
    bool isTooDeep_ = false;
    std::string error_;
    size_t errorPosition_ = 0;
};

// Tells the reason alone: the library's text begins with tags and a place of its own.
std::string_view ReasonOf(std::string_view error) {
    const size_t tag = error.find("] ");
    if (tag != std::string_view::npos) {
        error.remove_prefix(tag + 2);
    }
    if (error.starts_with("parse error")) {
        const size_t place = error.find(": ");
        error.remove_prefix(place == std::string_view::npos ? 0 : place + 2);
    }
    return error;
}

// position counts the bytes up to and with the one that was refused.
void LogSyntaxError(const std::string& text, size_t position, std::string_view reason) {
    const std::string_view before(text.data(), std::min(position == 0 ? 0 : position - 1, text.size()));
    const size_t lineEnd = before.rfind('\n');
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const size_t column = lineEnd == std::string_view::npos ? before.size() + 1 : before.size() - lineEnd;
    LogWarning("JSON refused at line %ld, column %zu: %.*s", static_cast<long>(line), column,
               static_cast<int>(std::min<size_t>(reason.size(), 200)), reason.data());
}

}  // namespace

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
    BringIntoBeing(*document_, path_) = KeyOf(text);
    return *this;
}

JsonValue& JsonValue::operator=(const std::string& text) {
    BringIntoBeing(*document_, path_) = text;
    return *this;
}

JsonValue& JsonValue::operator=(int number) {
    BringIntoBeing(*document_, path_) = number;
    return *this;
}

void JsonValue::TypeChangeToArray() {
    Json& value = BringIntoBeing(*document_, path_);
    if (!value.is_array()) {
        value = Json::array();
    }
}

void JsonValue::JsonItemAddToArray(const JsonValue& item) {
    Json copy = CopyOf(*item.document_, item.path_);
    TypeChangeToArray();
    BringIntoBeing(*document_, path_).push_back(std::move(copy));
}

void JsonValue::JsonItemAddToObject(const char* key, const JsonValue& item) {
    Json copy = CopyOf(*item.document_, item.path_);
    Path path = path_;
    path.push_back(KeyOf(key));
    BringIntoBeing(*document_, path) = std::move(copy);
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

bool JsonCharReader::Parse(const std::string& text, JsonValue& value) const {
    if (text.size() > maxTextBytes) {
        LogWarning("JSON refused: %zu bytes, the limit is %zu", text.size(), maxTextBytes);
        return false;
    }
    // The library takes a zero byte for the end of the text and would accept whatever stands behind it.
    const size_t zero = text.find('\0');
    if (zero != std::string::npos) {
        LogSyntaxError(text, zero + 1, "zero byte");
        return false;
    }
    TreeBuilder builder;
    if (!Json::sax_parse(text, &builder)) {
        if (builder.IsTooDeep()) {
            LogWarning("JSON refused: more than %zu levels of nesting", maxDepth);
        } else {
            LogSyntaxError(text, builder.ErrorPosition(), ReasonOf(builder.Error()));
        }
        return false;
    }
    BringIntoBeing(*value.document_, value.path_) = builder.TakeRoot();
    return true;
}

namespace {

// Delete and the C1 controls stand for themselves in JSON, but they steer a terminal that an event is shown on. Only
// strings can hold them.
std::string WithoutTerminalControls(std::string text) {
    constexpr char digits[] = "0123456789abcdef";
    std::string clean;
    size_t kept = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool isC1 = byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0;
        if (byte != 0x7F && !isC1) {
            continue;
        }
        clean.append(text, kept, at - kept);
        at += isC1 ? 1 : 0;
        const auto code = static_cast<unsigned char>(text[at]);
        clean.append({'\\', 'u', '0', '0', digits[code >> 4U], digits[code & 0xFU]});
        kept = at + 1;
    }
    if (kept == 0) {
        return text;
    }
    return clean.append(text, kept);
}

}  // namespace

JsonStreamWriter::JsonStreamWriter(bool indent) : indent_(indent) {}

bool JsonStreamWriter::Write(const JsonValue& value, std::string& text) const {
    const Json* found = Find(*value.document_, value.path_);
    text = found == nullptr ? "null"
                            : WithoutTerminalControls(
                                  found->dump(indent_ ? indentWidth : -1, ' ', false, Json::error_handler_t::replace));
    return true;
}

}  // namespace TavUtils::JsonAdaptor
