#include "demo/scenarios.h"

#include <gtest/gtest.h>

#include <set>

namespace Host {
namespace {

TEST(Wirings, NamesAndPortsAreTheirOwn) {
    std::set<std::string> names;
    std::set<uint16_t> ports;
    for (const WiringPlan& plan : AllWirings()) {
        EXPECT_TRUE(names.insert(plan.name).second) << plan.name;
        EXPECT_TRUE(ports.insert(PortOf(plan)).second) << plan.name;
        EXPECT_EQ(FindWiring(plan.name), &plan);
    }
    EXPECT_EQ(FindWiring("none"), nullptr);
}

TEST(Wirings, EveryDetectionAndThreeHarmlessOnesAreThere) {
    std::set<Detection> detections;
    int harmless = 0;
    for (const WiringPlan& plan : AllWirings()) {
        harmless += plan.Harmless() ? 1 : 0;
        for (const Expectation& expectation : plan.expected) {
            detections.insert(expectation.detection);
        }
    }
    EXPECT_EQ(detections.size(), 4U);
    EXPECT_GE(harmless, 3);
}

TEST(Wirings, WhatIsExpectedIsToldWithTheOperation) {
    EXPECT_EQ(ExpectationText({Detection::periodScan, ""}), "period scan");
    EXPECT_EQ(ExpectationText({Detection::shellFileProtection, "move"}), "shell file protection (move)");
}

}  // namespace
}  // namespace Host
