#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "real_module.h"
#include "tests/support/await_condition.h"
#include "tests/support/emulation.h"

namespace {

size_t EntriesOf(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// A joined thread may remain in /proc for a moment.
bool ReachesThreads(size_t expected) {
    return TestSupport::Await([&] { return EntriesOf("/proc/self/task") == expected; });
}

TEST(Soak, LeaksNoThreadOrDescriptorOverManyStarts) {
    std::optional<RealModule> module(std::in_place);
    const auto cycle = [&] {
        module->init();
        ASSERT_EQ(module->start(R"({"abnormalShell":{},"reverseShell":{"whitelist":["a","b"]}})"), 1);
        module->stop("0000");
        module->deinit();
    };
    // The first cycle creates everything that the agent keeps for its lifetime.
    cycle();
    const size_t threads = EntriesOf("/proc/self/task");
    const size_t descriptors = EntriesOf("/proc/self/fd");
    const int starts = runsEmulated ? 150 : 1000;  // one takes half a second when emulated
    for (int i = 1; i < starts; ++i) {
        cycle();
        if (i % 100 == 0) {
            module.reset();
            module.emplace();
        }
    }
    EXPECT_TRUE(ReachesThreads(threads)) << EntriesOf("/proc/self/task") << " threads, " << threads << " expected";
    EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
}

}  // namespace
