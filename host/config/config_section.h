// One object of the configuration and the checks that all of them share.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace Host {

// What is wrong at one place of the configuration; what() is the message without the file's name.
class ConfigError : public std::runtime_error {
public:
    ConfigError(const std::string& path, const std::string& found, const std::string& expected,
                const std::string& remedy);
};

// The value must outlive the section. All members throw ConfigError for what does not hold.
class Section {
public:
    // path is the object's place, empty for the whole file.
    Section(const nlohmann::ordered_json& value, std::string path);

    const nlohmann::ordered_json& Value() const { return *value_; }
    const std::string& Path() const { return path_; }

    void AllowOnly(std::initializer_list<const char*> keys) const;

    // Null, or empty, if there is no such member.
    const nlohmann::ordered_json* Find(const char* key) const;
    std::optional<Section> Child(const char* key) const;
    std::optional<int64_t> Integer(const char* key, int64_t least, int64_t most, const char* remedy) const;

private:
    const nlohmann::ordered_json* value_;
    std::string path_;
};

}  // namespace Host
