#include "demo/stagehand.h"

#include <unistd.h>

#include <cstring>
#include <exception>
#include <string>

#include "demo/attacker.h"
#include "demo/stage_acts.h"
#include "demo/wirings.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

void Tell(const std::string& line) {
    WriteAll(STDOUT_FILENO, line + "\n");
}

}  // namespace

int StagehandMain(int argc, const char* const* argv) {
    if (argc != 4) {
        WriteAll(STDERR_FILENO, "orlim-agent: stagehand is a part of orlim-agent demo, not a command of its own\n");
        return 2;
    }
    try {
        if (std::strcmp(argv[2], attackerName) == 0) {
            Tell("error " + ServeAsAttacker());
            return 1;
        }
        const WiringPlan* plan = FindWiring(argv[2]);
        if (plan == nullptr) {
            Tell(std::string("error no such wiring: ") + argv[2]);
            return 1;
        }
        Act(*plan, argv[3], Tell);
        return 0;
    } catch (const std::exception& error) {
        Tell(std::string("error ") + error.what());
        return 1;
    }
}

}  // namespace Host
