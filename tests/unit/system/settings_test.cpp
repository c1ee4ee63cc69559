#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/config.h"

namespace {

using TavUtils::Config;

TEST(Config, IsSharedByTheWholeProcess) {
    Config& config = Config::GetInstance();
    EXPECT_EQ(&config, &Config::GetInstance());
    const std::lock_guard<Config> guard(config);
    config.GetConfigMap<std::string>()["config_test.key"] = "value";
    EXPECT_EQ(Config::GetInstance().GetConfigMap<std::string>().at("config_test.key"), "value");
    EXPECT_EQ(config.GetConfigMap<std::string>().erase("config_test.key"), 1U);
}

TEST(Config, GuardsTheMapBetweenThreads) {
    constexpr int threads = 4;
    constexpr int rounds = 500;
    std::vector<std::thread> writers;
    for (int i = 0; i < threads; ++i) {
        writers.emplace_back([] {
            for (int round = 0; round < rounds; ++round) {
                const std::lock_guard<Config> guard(Config::GetInstance());
                Config::GetInstance().GetConfigMap<std::string>()["config_test.count"] += 'x';
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    const std::lock_guard<Config> guard(Config::GetInstance());
    EXPECT_EQ(Config::GetInstance().GetConfigMap<std::string>().at("config_test.count").size(),
              static_cast<size_t>(threads * rounds));
    Config::GetInstance().GetConfigMap<std::string>().erase("config_test.count");
}

}  // namespace
