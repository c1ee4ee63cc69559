#include "host/program/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <string>

#include "demo/stagehand.h"
#include "host/base/complain.h"
#include "host/base/exit_status.h"
#include "host/base/signals.h"
#include "host/base/write_all.h"
#include "host/program/check_command.h"
#include "host/program/demo_command.h"
#include "host/program/explain_command.h"
#include "host/program/options.h"
#include "host/program/run_command.h"
#include "host/program/scan_command.h"

namespace Host {
namespace {

// A descriptor of the agent's that took the place of a closed standard stream would be written to by mistake.
void OccupyStandardStreams() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
}

int Execute(const Options& options) {
    switch (options.command) {
        case Command::scan:
            return ScanCommand(options);
        case Command::check:
            return CheckCommand(options);
        case Command::explain:
            return ExplainCommand(options);
        case Command::demo:
            return DemoCommand(options);
        case Command::run:
            break;
    }
    return RunCommand(options);
}

}  // namespace

int Main(int argc, const char* const* argv) {
    if (argc > 1 && std::strcmp(argv[1], stagehandCommand) == 0) {
        return StagehandMain(argc, argv);
    }
    OccupyStandardStreams();
    IgnoreWriteSignals();
    const ParsedOptions parsed = ParseOptions(argc, argv);
    if (!parsed.options) {
        WriteAll(STDOUT_FILENO, parsed.output);
        WriteAll(STDERR_FILENO, parsed.error);
        return parsed.exitStatus;
    }
    try {
        return Execute(*parsed.options);
    } catch (const std::exception& error) {
        // Such as a thread or memory that the system refuses.
        Complain(std::string("cannot go on: ") + error.what());
        return EXIT_FAILED;
    }
}

}  // namespace Host
