#include "host/program/options.h"

#include <CLI/CLI.hpp>
#include <limits>
#include <map>
#include <sstream>
#include <vector>

#include "host/base/console.h"

namespace Host {
namespace {

constexpr const char* description =
    "orlim-agent finds reverse shells and tampering with the shell programs of this host.\n"
    "It loads the detection module and writes each finding as one line of JSON to the configured sinks, by default to\n"
    "standard output. Its own log goes to standard error.\n";

constexpr const char* footer =
    "Examples:\n"
    "  orlim-agent check                                   see what is missing on this host, and what that costs\n"
    "  orlim-agent run --config /etc/orlim/orlim-agent.json\n"
    "                                                      watch until SIGTERM or SIGINT\n"
    "  orlim-agent scan > findings.jsonl                   look for reverse shells once\n"
    "  orlim-agent explain 4711                            see how a process is wired, and why it is or is not "
    "reported\n"
    "  orlim-agent explain 4711 --dot | dot -Tsvg > 4711.svg\n"
    "                                                      the same wiring as a picture\n"
    "  orlim-agent demo                                    see every detection at work on staged attacks, within a "
    "minute\n"
    "\n"
    "Signals (run):\n"
    "  SIGTERM, SIGINT  stop the module, write the queued events and exit\n"
    "  SIGHUP           reopen the files of the sinks and reload the configuration; if the new one is invalid or does "
    "not\n"
    "                   start, the agent logs that and keeps the current one\n"
    "\n"
    "Exit status:\n"
    "  0  success (check: nothing essential is missing)\n"
    "  1  the module or a step of the start failed (check: something essential is missing; explain: the process cannot "
    "be\n"
    "     inspected; demo: an attack was missed or something harmless was reported)\n"
    "  2  the command line or the configuration is invalid\n"
    "\n"
    "Run the agent as root, or with CAP_SYS_PTRACE, CAP_DAC_READ_SEARCH, CAP_NET_ADMIN and CAP_SYS_ADMIN.\n"
    "Without --config both detection functions run with their defaults, and shells are looked up in\n"
    "/etc/orlim/default_shells and /etc/shells.";

void AddConfigOption(CLI::App& command, Options& options) {
    command.add_option("--config", options.configFile, "Configuration, JSON with comments; defaults without it")
        ->type_name("FILE");
    command.footer("See orlim-agent --help for examples, signals and exit status.");
}

void AddModuleOption(CLI::App& command, Options& options) {
    command
        .add_option("--module", options.moduleFile,
                    "Detection module, liborlim_detect-shell.so; looked up beside the agent and in the library "
                    "directories without it")
        ->type_name("FILE");
}

void AddExplainOptions(CLI::App& command, Options& options) {
    command.add_option("PID", options.pid, "Id of the process")
        ->required()
        ->check(CLI::Range(1, std::numeric_limits<int>::max()).description(""))
        ->type_name("");
    command.add_flag("--dot", options.dot, "Print the wiring alone, as a graph for Graphviz");
}

Command CommandOf(const CLI::App& app) {
    static const std::map<std::string, Command> commands{{"run", Command::run},
                                                         {"scan", Command::scan},
                                                         {"check", Command::check},
                                                         {"explain", Command::explain},
                                                         {"demo", Command::demo}};
    return commands.at(app.get_subcommands().front()->get_name());
}

// For a misspelt command CLI11 only reports that a command is missing.
std::string UsageError(const CLI::App& app, const CLI::ParseError& error) {
    if (!app.get_subcommands().empty()) {
        return error.what();
    }
    const std::vector<std::string> rest = app.remaining();
    if (rest.empty()) {
        return "a command is missing: run, scan, check, explain or demo";
    }
    return rest.front() + " is not a command; the commands are run, scan, check, explain and demo";
}

// CLI11 reports --help and --version as errors with status 0.
ParsedOptions HelpOrUsageError(const CLI::App& app, const CLI::ParseError& error) {
    ParsedOptions parsed;
    std::ostringstream output;
    std::ostringstream ignored;
    if (app.exit(error, output, ignored) != 0) {
        parsed.exitStatus = EXIT_WRONG_USE;
        parsed.error = "orlim-agent: " + UsageError(app, error) +
                       "\nTry: orlim-agent --help, or for example: orlim-agent run --config "
                       "/etc/orlim/orlim-agent.json\n";
    }
    parsed.output = output.str();
    return parsed;
}

}  // namespace

ParsedOptions ParseOptions(int argc, const char* const* argv) {
    Options options;
    CLI::App app(description, "orlim-agent");
    app.footer(footer);
    app.set_version_flag("--version", "orlim-agent " ORLIM_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    CLI::App* run = app.add_subcommand("run", "Watch this host until SIGTERM or SIGINT");
    CLI::App* scan = app.add_subcommand("scan", "Look for reverse shells once, then exit");
    CLI::App* check =
        app.add_subcommand("check", "List what this host lacks, and which detections are blind without it");
    CLI::App* explain = app.add_subcommand("explain", "Show how a process is wired, and why it is or is not reported");
    CLI::App* demo =
        app.add_subcommand("demo", "Stage known attacks between two temporary hosts, and show which are found");
    for (CLI::App* command : {run, scan, check, explain}) {
        AddConfigOption(*command, options);
    }
    for (CLI::App* command : {run, scan, check}) {
        AddModuleOption(*command, options);
    }
    AddExplainOptions(*explain, options);
    // orlim-demo parses its own options, including --help.
    demo->set_help_flag();
    demo->prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return HelpOrUsageError(app, error);
    }
    options.command = CommandOf(app);
    options.demoArguments = demo->remaining();
    ParsedOptions parsed;
    parsed.options = options;
    return parsed;
}

}  // namespace Host
