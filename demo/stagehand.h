// A process that stages one scenario, or the attacker's host.
#pragma once

namespace Host {

// The first argument of such a process.
constexpr const char* stagehandCommand = "stagehand";

// Stages the scenario argv[2], or serves as the attacker; argv[3] is the directory for files. Returns the exit status;
// most scenarios run until the process is killed. Prints one line per part: "shell PID", "program PID", "file PATH",
// "skip REASON", "error REASON", and finally "done".
int StagehandMain(int argc, const char* const* argv);

}  // namespace Host
