// The part of the stage that a process of its own does.
#pragma once

namespace Host {

// What the first argument is in such a process.
constexpr const char* stagehandCommand = "stagehand";

// Stages the wiring that argv[2] names, with the directory argv[3] for its files, or serves as the attacker. Returns
// the exit status; most never return. What it has done is told on standard output, a line each: "shell PID",
// "program PID", "file PATH", "skip REASON", "error REASON", and "done" in the end.
int StagehandMain(int argc, const char* const* argv);

}  // namespace Host
