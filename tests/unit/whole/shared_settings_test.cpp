#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>

#include "agent/config.h"
#include "host/system/status_board.h"
#include "module/published.h"
#include "real_module.h"
#include "tests/support/proc_tree.h"

namespace {

// Hides the host's own list: initialisation succeeds only with a shell listed through the agent's setting.
TEST(SharedSettings, TheModuleSeesTheAgentsSettings) {
    if (!MayMount()) {
        GTEST_SKIP() << "needs the right to mount over /etc/shells (root)";
    }
    const FileOverlay emptyList("/etc/shells", "");
    const TemporaryDirectory etc;
    etc.Write("default_shells", etc.Write("own-shell", "") + "\n");
    RealModule module;
    EXPECT_EQ(module.init(), 0);

    TavUtils::Config& config = TavUtils::Config::GetInstance();
    {
        const std::lock_guard<TavUtils::Config> guard(config);
        config.GetConfigMap<std::string>()[Published::folderSetting] = etc.Path();
    }
    EXPECT_EQ(module.init(), 1);
    const std::lock_guard<TavUtils::Config> guard(config);
    config.GetConfigMap<std::string>().clear();
}

}  // namespace
