#include "demo/stage_acts.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "demo/actors.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

struct Scene {
    const Scenario& scenario;
    const std::string& directory;
    const std::function<void(const std::string&)>& report;

    std::string File(const char* suffix) const { return directory + "/" + scenario.name + suffix; }
    void Shell(pid_t pid) const { report("shell " + std::to_string(pid)); }
    void Done() const { report("done"); }
};

[[noreturn]] void KeepUp() {
    for (;;) {
        ::pause();
    }
}

void BashOnSocket(const Scene& scene) {
    const int connection = ConnectToAttacker(scene.scenario);
    scene.Shell(StartShell({{0, connection}, {1, connection}, {2, connection}}));
    scene.Done();
    ::close(connection);
    KeepUp();
}

// This process is the relay that waits: the instant scan inspects the parent of a shell, not its siblings.
void FifoWaitingRelay(const Scene& scene) {
    const int connection = ConnectToAttacker(scene.scenario);
    const Ends input = MakeNamedPipe(scene.File(".fifo"));
    const Ends output = MakeAnonymousPipe();
    StartWaitingRelay({{0, output.read}, {1, connection}});
    scene.Shell(StartShell({{0, input.read}, {1, output.write}, {2, output.write}}));
    scene.Done();
    TakePlaces({{0, connection}, {1, input.write}});
    RelayWaiting();
    KeepUp();
}

void FifoPollingRelay(const Scene& scene) {
    const int connection = ConnectToAttacker(scene.scenario);
    const Ends input = MakeNamedPipe(scene.File(".fifo"));
    const Ends output = MakeAnonymousPipe();
    StartPollingRelay({{0, output.read}, {1, input.write}, {3, connection}}, {{0, 3}, {3, 1}});
    scene.Shell(StartShell({{0, input.read}, {1, output.write}, {2, output.write}}));
    scene.Done();
    TakePlaces({});
    KeepUp();
}

void TwoRelays(const Scene& scene) {
    const int connection = ConnectToAttacker(scene.scenario);
    const Ends input = MakeAnonymousPipe();
    const Ends output = MakeAnonymousPipe();
    const Ends inwards = MakeAnonymousPipe();
    const Ends outwards = MakeAnonymousPipe();
    StartPollingRelay({{0, output.read}, {1, input.write}, {3, inwards.read}, {4, outwards.write}}, {{0, 4}, {3, 1}});
    StartPollingRelay({{0, outwards.read}, {1, inwards.write}, {3, connection}}, {{0, 3}, {3, 1}});
    scene.Shell(StartShell({{0, input.read}, {1, output.write}, {2, output.write}}));
    scene.Done();
    TakePlaces({});
    KeepUp();
}

void TerminalRelay(const Scene& scene) {
    const int connection = ConnectToAttacker(scene.scenario);
    const Terminal terminal = MakeTerminal();
    scene.Shell(StartShellOnTerminal(terminal));
    scene.Done();
    TakePlaces({{3, terminal.control}, {4, connection}});
    RelayPolling({{3, 4}, {4, 3}});
    KeepUp();
}

void ShortCommands(const Scene& scene) {
    const int connection = ConnectToAttacker(scene.scenario);
    scene.report("program " + std::to_string(::getpid()));
    scene.Done();
    TakePlaces({{3, connection}});
    std::string line;
    char byte = 0;
    while (::read(3, &byte, 1) == 1) {
        if (byte != '\n') {
            line += byte;
            continue;
        }
        RunCommandLine(line);
        WriteAll(3, "done\n");
        line.clear();
    }
    KeepUp();
}

void RenamedBash(const Scene& scene) {
    const std::string copy = scene.directory + "/updater";
    std::filesystem::copy_file("/bin/bash", copy);
    scene.report("file " + copy);
    const int connection = ConnectToAttacker(scene.scenario);
    scene.Shell(StartShell({{0, connection}, {1, connection}, {2, connection}}, {}, copy));
    scene.Done();
    ::close(connection);
    KeepUp();
}

void ShellChmod(const Scene& scene) {
    const std::string shell = ShellFileOf(scene.directory, scene.scenario.name);
    scene.report("file " + shell);
    if (::chmod(shell.c_str(), 0700) != 0) {
        FailStaging("chmod: " + ErrorText(errno));
    }
    scene.Done();
}

// Uses the "no dump" flag because it does not affect how the file can be used.
void ShellChattr(const Scene& scene) {
    const std::string shell = ShellFileOf(scene.directory, scene.scenario.name);
    scene.report("file " + shell);
    const Descriptor file(::open(shell.c_str(), O_RDONLY | O_CLOEXEC));
    int flags = 0;
    if (::ioctl(file.Get(), FS_IOC_GETFLAGS, &flags) != 0) {
        scene.report("skip the file system of " + scene.directory + " has no file flags");
        return;
    }
    flags |= FS_NODUMP_FL;
    if (::ioctl(file.Get(), FS_IOC_SETFLAGS, &flags) != 0) {
        scene.report("skip the file system of " + scene.directory +
                     " refuses to change file flags: " + ErrorText(errno));
        return;
    }
    scene.Done();
}

void ShellRename(const Scene& scene) {
    const std::string shell = ShellFileOf(scene.directory, scene.scenario.name);
    scene.report("file " + shell);
    if (::rename(shell.c_str(), (shell + ".away").c_str()) != 0) {
        FailStaging("rename: " + ErrorText(errno));
    }
    scene.Done();
}

void HarmlessTerminal(const Scene& scene) {
    const Terminal terminal = MakeTerminal();
    scene.Shell(StartShellOnTerminal(terminal));
    scene.Done();
    ::usleep(500000);
    WriteAll(terminal.control, "id\n");
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    RelayPolling({{terminal.control, null}});
    KeepUp();
}

void HarmlessPipeline(const Scene& scene) {
    constexpr const char* script =
        "for n in {1..400}; do echo $n; sleep 0.1; done | while read -r n; do echo $n; done | sort -n >/dev/null";
    scene.Shell(StartShell({}, {"-c", script}));
    scene.Done();
    KeepUp();
}

// Afterwards the shell waits for input, so that it still exists when it is judged.
void HarmlessBuild(const Scene& scene) {
    constexpr const char* script = "for n in {1..20}; do cat /etc/hostname; ls /; done >/dev/null; read -r line";
    const Ends input = MakeAnonymousPipe();
    scene.Shell(StartShell({{0, input.read}}, {"-c", script}));
    scene.Done();
    KeepUp();
}

constexpr struct {
    const char* name;
    void (*act)(const Scene& scene);
} acts[] = {
    {"bash-on-socket", BashOnSocket},
    {"fifo-waiting-relay", FifoWaitingRelay},
    {"fifo-polling-relay", FifoPollingRelay},
    {"two-relays", TwoRelays},
    {"terminal-relay", TerminalRelay},
    {"short-commands", ShortCommands},
    {"renamed-bash", RenamedBash},
    {"shell-chmod", ShellChmod},
    {"shell-chattr", ShellChattr},
    {"shell-rename", ShellRename},
    {"harmless-terminal", HarmlessTerminal},
    {"harmless-pipeline", HarmlessPipeline},
    {"harmless-build", HarmlessBuild},
};

}  // namespace

void Act(const Scenario& scenario, const std::string& directory,
         const std::function<void(const std::string&)>& report) {
    for (const auto& each : acts) {
        if (scenario.name == each.name) {
            each.act({scenario, directory, report});
            return;
        }
    }
    FailStaging("no function stages this scenario");
}

}  // namespace Host
