#include "host/config/config_text.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

namespace Host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t maxDepth = 64;
constexpr size_t shownBytes = 60;

bool IsPlainKey(const std::string& key) {
    return !key.empty() && key.size() <= shownBytes && std::all_of(key.begin(), key.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

// Reads the text once without building a value, to find duplicate keys and deep nesting, which the parser accepts.
class Checker : public nlohmann::json_sax<Json> {
public:
    explicit Checker(const std::string& text) : text_(text) {}

    const std::string& Problem() const { return problem_; }

    bool null() override { return Value(); }
    bool boolean(bool /*value*/) override { return Value(); }
    bool number_integer(number_integer_t /*value*/) override { return Value(); }
    bool number_unsigned(number_unsigned_t /*value*/) override { return Value(); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return Value(); }
    bool string(string_t& /*value*/) override { return Value(); }
    bool binary(binary_t& /*value*/) override { return Value(); }
    bool start_object(size_t /*elements*/) override { return OpenLevel(true); }
    bool start_array(size_t /*elements*/) override { return OpenLevel(false); }
    bool end_object() override { return CloseLevel(); }
    bool end_array() override { return CloseLevel(); }
    bool key(string_t& name) override;
    bool parse_error(size_t position, const std::string& lastToken, const nlohmann::detail::exception& why) override;

private:
    struct Level {
        bool isObject;
        std::string path;
        std::set<std::string> keys;
        std::string currentKey;
        size_t elements = 0;
    };

    std::string NextPath() const;
    bool Value();
    bool OpenLevel(bool isObject);
    bool CloseLevel();

    const std::string& text_;
    std::vector<Level> levels_;
    std::string problem_;
};

std::string Checker::NextPath() const {
    if (levels_.empty()) {
        return "";
    }
    const Level& level = levels_.back();
    return level.isObject ? MemberPath(level.path, level.currentKey) : ElementPath(level.path, level.elements);
}

bool Checker::Value() {
    if (!levels_.empty()) {
        ++levels_.back().elements;
    }
    return true;
}

bool Checker::OpenLevel(bool isObject) {
    if (levels_.size() == maxDepth) {
        problem_ = ": expected at most 64 levels of nesting, found more. Nest the values less deeply.";
        return false;
    }
    levels_.push_back(Level{isObject, NextPath(), {}, {}, 0});
    return true;
}

bool Checker::CloseLevel() {
    levels_.pop_back();
    return Value();
}

bool Checker::key(string_t& name) {
    Level& level = levels_.back();
    level.currentKey = name;
    if (!level.keys.insert(name).second) {
        problem_ = ": " + MemberPath(level.path, name) +
                   ": expected the key once, found it a second time. Keep one of the two.";
        return false;
    }
    return true;
}

// Returns the last part of "[json.exception.parse_error.101] parse error at line 1, column 2: REASON". The caller adds
// line and column itself, because not every message has them.
std::string Reason(std::string message) {
    const size_t bracket = message.find("] ");
    if (bracket != std::string::npos) {
        message.erase(0, bracket + 2);
    }
    if (message.rfind("parse error", 0) == 0) {
        const size_t colon = message.find(": ");
        message.erase(0, colon == std::string::npos ? 0 : colon + 2);
    }
    return message;
}

bool Checker::parse_error(size_t position, const std::string& /*lastToken*/, const nlohmann::detail::exception& why) {
    const size_t at = std::min(position == 0 ? 0 : position - 1, text_.size());
    const std::string before = text_.substr(0, at);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const size_t lineStart = before.rfind('\n');
    const size_t column = 1 + (lineStart == std::string::npos ? at : at - lineStart - 1);
    problem_ = ":" + std::to_string(line) + ":" + std::to_string(column) + ": not valid JSON: " + Reason(why.what()) +
               ". Correct the text at this place or shortly before it. Comments are // or /* */.";
    return false;
}

}  // namespace

std::string MemberPath(const std::string& parent, const std::string& key) {
    if (IsPlainKey(key)) {
        return parent.empty() ? key : parent + "." + key;
    }
    return parent + "[" + ShowValue(Json(key)) + "]";
}

std::string ElementPath(const std::string& parent, size_t index) {
    return parent + "[" + std::to_string(index) + "]";
}

std::string ShowValue(const Json& value) {
    // Escaped to ASCII first: a cut must not split a character.
    std::string shown = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    if (shown.size() > shownBytes) {
        shown.resize(shownBytes);
        shown += "...";
    }
    return shown;
}

bool ParseConfigText(const std::string& text, const std::string& file, Json& value, std::string& error) {
    const size_t zero = text.find('\0');
    if (zero != std::string::npos) {
        error = file + ": byte " + std::to_string(zero + 1) +
                ": expected text, found a zero byte. Name a text file that contains JSON.";
        return false;
    }
    Checker checker(text);
    if (!Json::sax_parse(text, &checker, nlohmann::detail::input_format_t::json, true, true)) {
        error = file + checker.Problem();
        return false;
    }
    value = Json::parse(text, nullptr, true, true);
    return true;
}

}  // namespace Host
