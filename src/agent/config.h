// The agent's settings, shared by all its modules.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

namespace TavUtils {

// The process-wide settings map. It is itself the lock that guards the map: hold it, as with std::lock_guard<Config>,
// for as long as the map is used. A reader tests for a key before it reads it, so that reading creates none.
class Config {
public:
    static Config& GetInstance();

    // Only std::string is offered.
    template <typename Value>
    std::unordered_map<std::string, Value>& GetConfigMap();

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

    Config(const Config&) = delete;
    Config& operator=(const Config&) = delete;

private:
    Config() = default;
    ~Config() = default;

    std::mutex mutex_;
    std::unordered_map<std::string, std::string> settings_;
};

template <>
std::unordered_map<std::string, std::string>& Config::GetConfigMap<std::string>();

}  // namespace TavUtils
