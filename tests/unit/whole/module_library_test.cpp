#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "command_output.h"
#include "host/events/agent_library.h"
#include "module/published.h"
#include "real_module.h"

namespace {

std::set<std::string> Words(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

TEST(ModuleLibrary, ExportsOnlyTheFourUnmangledEntries) {
    const std::string symbols = CommandOutput("nm -D --defined-only --format=just-symbols '" ORLIM_MODULE_FILE "'");
    EXPECT_EQ(Words(symbols), (std::set<std::string>{"InitModule", "StartModule", "StopModule", "DeinitModule"}));
}

TEST(ModuleLibrary, LinksOnlyTheStandardLibraryAndTheAgent) {
    std::set<std::string> allowed{"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6", "liborlim_agent.so"};
    // The tool chain adds the loader and the sanitizers' run-time libraries.
    for (const std::string& word :
         Words(CommandOutput("readelf -d '" ORLIM_MODULE_FILE "' | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p'"))) {
        const bool toolChain = word.starts_with("ld-linux") || word.starts_with("libasan.") ||
                               word.starts_with("libubsan.") || word.starts_with("libtsan.");
        EXPECT_TRUE(toolChain || allowed.contains(word)) << word;
    }
}

TEST(ModuleLibrary, IsHardened) {
    const std::string dynamic = CommandOutput("readelf -dW '" ORLIM_MODULE_FILE "'");
    EXPECT_NE(dynamic.find("BIND_NOW"), std::string::npos);
    const std::string segments = CommandOutput("readelf -lW '" ORLIM_MODULE_FILE "'");
    EXPECT_NE(segments.find("GNU_RELRO"), std::string::npos);
    const size_t stack = segments.find("GNU_STACK");
    ASSERT_NE(stack, std::string::npos);
    const std::string line = segments.substr(stack, segments.find('\n', stack) - stack);
    EXPECT_EQ(line.find("RWE"), std::string::npos) << line;
}

TEST(ModuleLibrary, SharesTheAgentsScheduler) {
    RealModule module;
    ASSERT_EQ(module.start(R"({"reverseShell":{}})"), 1);
    EXPECT_TRUE(Host::AgentLibrary::Get().runTaskNow(Published::periodScanTask))
        << "a task of the module is known to the agent";
    EXPECT_TRUE(Host::AgentLibrary::Get().runTaskNow(Published::instantScanTask));
    module.stop("0000");
    EXPECT_FALSE(Host::AgentLibrary::Get().runTaskNow(Published::periodScanTask));
    module.deinit();
}

TEST(ModuleLibrary, ReportsItsStatusToTheAgent) {
    RealModule module;
    ASSERT_EQ(module.start(R"({"abnormalShell":{},"reverseShell":{}})"), 1);
    for (const char* name : {Published::shellFileFunction, Published::reverseShellFunction}) {
        EXPECT_TRUE(Host::AgentLibrary::Get().detectionStatus().at(name).running) << name;
        EXPECT_EQ(Host::AgentLibrary::Get().detectionStatus().at(name).code, "0000") << name;
    }
    module.stop("0042");
    for (const char* name : {Published::shellFileFunction, Published::reverseShellFunction}) {
        EXPECT_FALSE(Host::AgentLibrary::Get().detectionStatus().at(name).running) << name;
        EXPECT_EQ(Host::AgentLibrary::Get().detectionStatus().at(name).code, "0042") << name;
    }
}

}  // namespace
