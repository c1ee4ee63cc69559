#include "host/check/blindness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module/published.h"

namespace Host {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr auto& period = Published::periodScan;
constexpr auto& onSocket = Published::instantScanOnSocket;
constexpr auto& relay = Published::instantScanByRelay;
constexpr auto& descendant = Published::instantScanByDescendant;
constexpr auto& unixStream = Published::instantScanByRawSocket;
constexpr auto& terminal = Published::instantScanOnTerminal;
constexpr auto& shortCommands = Published::shortCommandWatcher;
constexpr auto& change = Published::shellFileChange;
constexpr auto& flags = Published::shellFileFlags;
constexpr auto& copy = Published::shellFileCopy;

std::vector<std::string> NamesOf(const std::vector<BlindDetection>& detections) {
    std::vector<std::string> names;
    for (const BlindDetection& detection : detections) {
        names.push_back(detection.name);
    }
    return names;
}

TEST(Blindness, ReportsNoDetectionIfNothingIsLacking) {
    EXPECT_THAT(BlindDetections({}, AgentConfig{}), IsEmpty());
}

TEST(Blindness, EachMissingFacilityBlindsTheDetectionsThatNeedIt) {
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

TEST(Blindness, GivesAllReasonsInOrder) {
    const auto blind = BlindDetections(
        {{Facility::fileFlags, "the first"}, {Facility::inotify, "another"}, {Facility::fanotify, "the second"}},
        AgentConfig{});
    ASSERT_EQ(blind.size(), 2U);
    EXPECT_EQ(blind[0].reason, "another");
    EXPECT_EQ(blind[1].reason, "the first; and the second");
}

TEST(Blindness, OmitsDetectionsThatAreOff) {
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
