#include "demo/stagehand.h"

#include <unistd.h>

#include <cstring>
#include <exception>
#include <string>

#include "demo/attacker.h"
#include "demo/scenarios.h"
#include "demo/stage_acts.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

void Reply(const std::string& line) {
    WriteAll(STDOUT_FILENO, line + "\n");
}

}  // namespace

int StagehandMain(int argc, const char* const* argv) {
    if (argc != 4) {
        WriteAll(STDERR_FILENO, "orlim-agent: stagehand is an internal command of orlim-agent demo\n");
        return 2;
    }
    try {
        if (std::strcmp(argv[2], attackerName) == 0) {
            Reply("error " + ServeAsAttacker());
            return 1;
        }
        const Scenario* scenario = FindScenario(argv[2]);
        if (scenario == nullptr) {
            Reply(std::string("error no such scenario: ") + argv[2]);
            return 1;
        }
        Act(*scenario, argv[3], Reply);
        return 0;
    } catch (const std::exception& error) {
        Reply(std::string("error ") + error.what());
        return 1;
    }
}

}  // namespace Host
