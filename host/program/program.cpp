#include "host/program/program.h"

#include <unistd.h>

#include <exception>
#include <string>

#include "host/base/console.h"
#include "host/base/descriptor.h"
#include "host/base/signals.h"
#include "host/program/check_command.h"
#include "host/program/demo_command.h"
#include "host/program/explain_command.h"
#include "host/program/options.h"
#include "host/program/run_command.h"
#include "host/program/scan_command.h"

namespace Host {
namespace {

int Execute(const Options& options) {
    switch (options.command) {
        case Command::scan:
            return ScanCommand(options);
        case Command::check:
            return CheckCommand(options);
        case Command::explain:
            return ExplainCommand(options);
        case Command::demo:
            return DemoCommand(options.demoArguments);
        case Command::run:
            break;
    }
    return RunCommand(options);
}

}  // namespace

int Main(int argc, const char* const* argv) {
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
        // For example, the system refuses a thread or memory.
        PrintMessage(std::string("exiting on an unexpected error: ") + error.what());
        return EXIT_FAILED;
    }
}

}  // namespace Host
