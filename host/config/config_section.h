// One object of the configuration, with the checks that all objects share.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace Host {

// The names as a list for a message: "a, b or c".
std::string Alternatives(std::initializer_list<const char*> names);

// One error in the configuration. what() is the message without the file name: "PATH: expected ..., found .... REMEDY".
class ConfigError : public std::runtime_error {
public:
    ConfigError(const std::string& path, const std::string& found, const std::string& expected,
                const std::string& remedy);
};

// The value must outlive the section. All members throw ConfigError if the value does not meet the requirement.
class Section {
public:
    // path is the key path of the object, empty for the whole file.
    Section(const nlohmann::ordered_json& value, std::string path);

    const nlohmann::ordered_json& Value() const { return *value_; }
    const std::string& Path() const { return path_; }

    void AllowOnly(std::initializer_list<const char*> keys) const;

    // Null or empty if there is no such member.
    const nlohmann::ordered_json* Find(const char* key) const;
    std::optional<Section> Child(const char* key) const;
    std::optional<int64_t> Integer(const char* key, int64_t least, int64_t most, const char* remedy) const;

private:
    const nlohmann::ordered_json* value_;
    std::string path_;
};

}  // namespace Host
