#include "demo/options.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "host/base/console.h"

namespace Host {

ParsedDemoOptions ParseDemoOptions(int argc, const char* const* argv) {
    DemoOptions options;
    // Users start this program as "orlim-agent demo".
    CLI::App app("Stage known attacks between two temporary hosts, and show which are found", "orlim-agent demo");
    app.add_option("--module", options.moduleFile,
                   "Detection module, liborlim_detect-shell.so; looked up beside the agent and in the library "
                   "directories without it")
        ->type_name("FILE");
    app.add_option("--only", options.only, "Stage only this scenario; may be given several times")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_flag("--list", options.list, "List the scenarios and the expected result of each, then exit");
    app.add_flag("--json", options.json, "Print one JSON text at the end and nothing else");
    app.footer("See orlim-agent --help for examples, signals and exit status.");
    ParsedDemoOptions parsed;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream output;
        std::ostringstream complaint;
        if (app.exit(error, output, complaint) != 0) {
            parsed.exitStatus = EXIT_WRONG_USE;
            parsed.error = std::string("orlim-agent: ") + error.what() + "\nTry: orlim-agent demo --help\n";
        }
        parsed.output = output.str();
        return parsed;
    }
    parsed.options = options;
    return parsed;
}

}  // namespace Host
