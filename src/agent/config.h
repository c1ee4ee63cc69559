// The agent's settings, shared by all its modules.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

namespace TavUtils {

// The process-wide settings map. The object is also the lock of the map: hold it, for example with
// std::lock_guard<Config>, while you use the map. Test for a key before you read it, because reading creates it.
class Config {
public:
    static Config& GetInstance();

    // Only std::string is available.
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
