#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>
#include <utility>

#include "host/base/log.h"
#include "host/text/json_document.h"

namespace TavUtils::JsonAdaptor {

namespace {

constexpr size_t maxTextBytes = 1024 * 1024;
constexpr size_t maxDepth = 64;

// Builds the tree during parsing, so that a text that nests too deep is rejected before it is built. The library's own
// builder searches all earlier members for each key. A text of many members that is well within the size limit would
// keep it busy for minutes.
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
        // The address stays valid: the enclosing container gets no further value until this one is closed.
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

// Removes the tags and the position that the library puts before the reason.
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

// position counts the bytes up to and including the rejected one.
void LogSyntaxError(const std::string& text, size_t position, std::string_view reason) {
    const std::string_view before(text.data(), std::min(position == 0 ? 0 : position - 1, text.size()));
    const size_t lineEnd = before.rfind('\n');
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const size_t column = lineEnd == std::string_view::npos ? before.size() + 1 : before.size() - lineEnd;
    LogWarning("cannot parse JSON, line %ld, column %zu: %.*s", static_cast<long>(line), column,
               static_cast<int>(std::min<size_t>(reason.size(), 200)), reason.data());
}

}  // namespace

bool JsonCharReader::Parse(const std::string& text, JsonValue& value) const {
    if (text.size() > maxTextBytes) {
        LogWarning("cannot parse JSON: its %zu bytes exceed the limit of %zu", text.size(), maxTextBytes);
        return false;
    }
    // The library treats a zero byte as the end of the text and would accept anything after it.
    const size_t zero = text.find('\0');
    if (zero != std::string::npos) {
        LogSyntaxError(text, zero + 1, "zero byte");
        return false;
    }
    TreeBuilder builder;
    if (!Json::sax_parse(text, &builder)) {
        if (builder.IsTooDeep()) {
            LogWarning("cannot parse JSON: it has more than %zu levels of nesting", maxDepth);
        } else {
            LogSyntaxError(text, builder.ErrorPosition(), ReasonOf(builder.Error()));
        }
        return false;
    }
    FindOrCreate(*value.document_, value.path_) = builder.TakeRoot();
    return true;
}

}  // namespace TavUtils::JsonAdaptor
