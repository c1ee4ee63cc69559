#include "host/check/blindness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char period[] = "period scan";
constexpr char onSocket[] = "instant scan, waits on a socket itself";
constexpr char relay[] = "instant scan, pipe fed by a relay";
constexpr char descendant[] = "instant scan, pipe fed by a descendant";
constexpr char unixStream[] = "instant scan, Unix stream with a raw-socket parent";
constexpr char terminal[] = "instant scan, terminal held by its parent";
constexpr char shortCommands[] = "short-command watcher";
constexpr char change[] = "shell file protection, change";
constexpr char flags[] = "shell file protection, flags";
constexpr char copy[] = "shell file protection, copy";

std::vector<std::string> NamesOf(const std::vector<BlindDetection>& detections) {
    std::vector<std::string> names;
    for (const BlindDetection& detection : detections) {
        names.push_back(detection.name);
    }
    return names;
}

TEST(Blindness, NothingLackingBlindsNothing) {
    EXPECT_THAT(BlindDetections({}, AgentConfig{}), IsEmpty());
}

TEST(Blindness, EachFacilityBlindsWhatStandsOnIt) {
    const std::vector<std::string> reverseShells = {period,     onSocket, relay,        descendant,
                                                    unixStream, terminal, shortCommands};
    std::vector<std::string> all = reverseShells;
    all.insert(all.end(), {change, flags, copy});
    std::vector<std::string> programs = reverseShells;
    programs.emplace_back(copy);
    const struct {
        Facility facility;
        std::vector<std::string> blind;
    } rows[] = {
        {Facility::module, all},
        {Facility::location, reverseShells},
        {Facility::processes, programs},
        {Facility::descriptors, reverseShells},
        {Facility::connectionTables, reverseShells},
        {Facility::processEvents, {onSocket, relay, descendant, unixStream, terminal, shortCommands, copy}},
        {Facility::kernelWaits, {onSocket, relay, descendant, unixStream, shortCommands}},
        {Facility::inotify, {change}},
        {Facility::fanotify, {flags}},
        {Facility::fileFlags, {flags}},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(NamesOf(BlindDetections({{row.facility, "x"}}, AgentConfig{})), ElementsAreArray(row.blind))
            << static_cast<unsigned int>(row.facility);
    }
}

TEST(Blindness, AllReasonsAreToldInTheirOrder) {
    const auto blind = BlindDetections(
        {{Facility::fileFlags, "the first"}, {Facility::inotify, "another"}, {Facility::fanotify, "the second"}},
        AgentConfig{});
    ASSERT_EQ(blind.size(), 2U);
    EXPECT_EQ(blind[0].reason, "another");
    EXPECT_EQ(blind[1].reason, "the first; and the second");
}

TEST(Blindness, WhatIsSwitchedOffIsNotBlind) {
    const std::vector<Lack> lacks = {{Facility::processes, "x"}};
    AgentConfig config;
    config.reverseShellText.reset();
    EXPECT_THAT(NamesOf(BlindDetections(lacks, config)), testing::ElementsAre(copy));
    config = AgentConfig{};
    config.abnormalShell = false;
    EXPECT_EQ(BlindDetections(lacks, config).size(), 7U);
}

}  // namespace
}  // namespace Host
