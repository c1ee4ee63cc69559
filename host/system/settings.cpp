#include "agent/config.h"

namespace TavUtils {

Config& Config::GetInstance() {
    static Config instance;
    return instance;
}

template <>
std::unordered_map<std::string, std::string>& Config::GetConfigMap<std::string>() {
    return settings_;
}

}  // namespace TavUtils
