#include "host/config/config_section.h"

#include <algorithm>
#include <utility>

#include "host/config/config_text.h"

namespace Host {

using Json = nlohmann::ordered_json;

std::string Alternatives(std::initializer_list<const char*> names) {
    std::string text;
    for (const char* const* name = names.begin(); name != names.end(); ++name) {
        const bool last = name + 1 == names.end();
        text += (text.empty() ? "" : last ? " or " : ", ") + std::string(*name);
    }
    return text;
}

ConfigError::ConfigError(const std::string& path, const std::string& found, const std::string& expected,
                         const std::string& remedy)
    : std::runtime_error((path.empty() ? "" : path + ": ") + "expected " + expected + ", found " + found + ". " +
                         remedy) {}

Section::Section(const Json& value, std::string path) : value_(&value), path_(std::move(path)) {
    if (!value.is_object()) {
        throw ConfigError(path_, ShowValue(value), "an object", "Write {...}, or omit the key for the default.");
    }
}

void Section::AllowOnly(std::initializer_list<const char*> keys) const {
    for (const auto& [key, value] : value_->items()) {
        if (std::find(keys.begin(), keys.end(), key) != keys.end()) {
            continue;
        }
        throw ConfigError(MemberPath(path_, key), "an unknown key",
                          (keys.size() == 1 ? "only " : "one of ") + Alternatives(keys),
                          "Correct the name or remove the key.");
    }
}

const Json* Section::Find(const char* key) const {
    const auto member = value_->find(key);
    return member == value_->end() ? nullptr : &*member;
}

std::optional<Section> Section::Child(const char* key) const {
    const Json* member = Find(key);
    return member == nullptr ? std::nullopt : std::optional<Section>(Section(*member, MemberPath(path_, key)));
}

std::optional<int64_t> Section::Integer(const char* key, int64_t least, int64_t most, const char* remedy) const {
    const Json* member = Find(key);
    if (member == nullptr) {
        return std::nullopt;
    }
    const bool inRange =
        member->is_number_unsigned()
            ? member->get<uint64_t>() <= static_cast<uint64_t>(most) && member->get<int64_t>() >= least
            : member->is_number_integer() && member->get<int64_t>() >= least && member->get<int64_t>() <= most;
    if (!inRange) {
        throw ConfigError(MemberPath(path_, key), ShowValue(*member),
                          "a whole number from " + std::to_string(least) + " to " + std::to_string(most), remedy);
    }
    return member->get<int64_t>();
}

}  // namespace Host
