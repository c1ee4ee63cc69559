#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <string>

#include "demo/command.h"
#include "demo/options.h"
#include "demo/stagehand.h"
#include "host/base/console.h"
#include "host/base/descriptor.h"
#include "host/base/signals.h"

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], Host::stagehandCommand) == 0) {
        return Host::StagehandMain(argc, argv);
    }
    Host::OccupyStandardStreams();
    Host::IgnoreWriteSignals();
    const Host::ParsedDemoOptions parsed = Host::ParseDemoOptions(argc, argv);
    if (!parsed.options) {
        Host::WriteAll(STDOUT_FILENO, parsed.output);
        Host::WriteAll(STDERR_FILENO, parsed.error);
        return parsed.exitStatus;
    }
    try {
        return Host::DemoCommand(*parsed.options);
    } catch (const std::exception& error) {
        // For example, the system refuses a thread or memory.
        Host::PrintMessage(std::string("exiting on an unexpected error: ") + error.what());
        return Host::EXIT_FAILED;
    }
}
