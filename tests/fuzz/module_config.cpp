// The module's configuration, the argument of StartModule.

#include "frame/settings.h"
#include "frame/whitelist.h"
#include "module/configuration.h"
#include "module/published.h"
#include "tests/fakes/fake_agent.h"
#include "tests/fuzz/fuzz_target.h"

static constexpr int intervalBefore = 77;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fake::ResetAgent();
    detectInterval = intervalBefore;
    abnormalShellEnabled = true;
    reverseShellEnabled = false;
    ReplaceWhitelist({"entry"});
    if (!ReadConfiguration(TerminatedTextOf(data, size).c_str())) {
        Require(detectInterval == intervalBefore && abnormalShellEnabled && !reverseShellEnabled &&
                    CurrentWhitelist()->size() == 1,
                "a refused configuration changes nothing");
        return 0;
    }
    Require(detectInterval >= Published::minDetectInterval && detectInterval <= Published::maxDetectInterval,
            "the period is within its range");
    Require(CurrentWhitelist()->size() <= Published::maxWhitelistSize, "the whitelist is within its limit");
    return 0;
}
