// The configuration document that the module is started with.

#include "frame/settings.h"
#include "frame/whitelist.h"
#include "module/configuration.h"
#include "tests/fakes/fake_agent.h"
#include "tests/fuzz/fuzz_target.h"

static constexpr int intervalBefore = 77;
static constexpr int shortestInterval = 30;
static constexpr int longestInterval = 86400;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fake::ResetAgent();
    detectInterval = intervalBefore;
    abnormalShellEnabled = true;
    reverseShellEnabled = false;
    ReplaceWhitelist({"entry"});
    if (!ReadConfiguration(TerminatedTextOf(data, size).c_str())) {
        Require(detectInterval == intervalBefore && abnormalShellEnabled && !reverseShellEnabled &&
                    CurrentWhitelist()->size() == 1,
                "what is refused changes nothing");
        return 0;
    }
    Require(detectInterval >= shortestInterval && detectInterval <= longestInterval, "the period is within its range");
    Require(CurrentWhitelist()->size() <= maxWhitelistSize, "the whitelist keeps its size");
    return 0;
}
