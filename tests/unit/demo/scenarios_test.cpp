#include "demo/scenarios.h"

#include <gtest/gtest.h>

#include <set>

namespace Host {
namespace {

TEST(Scenarios, HaveUniqueNamesAndPorts) {
    std::set<std::string> names;
    std::set<uint16_t> ports;
    for (const Scenario& scenario : AllScenarios()) {
        EXPECT_TRUE(names.insert(scenario.name).second) << scenario.name;
        EXPECT_TRUE(ports.insert(PortOf(scenario)).second) << scenario.name;
        EXPECT_EQ(FindScenario(scenario.name), &scenario);
    }
    EXPECT_EQ(FindScenario("none"), nullptr);
}

TEST(Scenarios, CoverEveryDetectionAndThreeHarmlessCases) {
    std::set<Detection> detections;
    int harmless = 0;
    for (const Scenario& scenario : AllScenarios()) {
        harmless += scenario.Harmless() ? 1 : 0;
        for (const Expectation& expectation : scenario.expected) {
            detections.insert(expectation.detection);
        }
    }
    EXPECT_EQ(detections.size(), 4U);
    EXPECT_GE(harmless, 3);
}

TEST(Scenarios, ExpectationTextIncludesTheOperation) {
    EXPECT_EQ(ExpectationText({Detection::periodScan, ""}), "period scan");
    EXPECT_EQ(ExpectationText({Detection::shellFileProtection, "move"}), "shell file protection (move)");
}

}  // namespace
}  // namespace Host
