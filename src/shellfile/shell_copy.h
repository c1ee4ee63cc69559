// Detects executed copies of a shell under another name.
#pragma once

#include <linux/cn_proc.h>

#include <string>

// Reports the exec of a copy and ignores other events. Costs one stat(2) per exec of a program that is not a listed
// shell, and a digest if the program has the size of a shell. Called on the process monitor's thread for this callback.
void ShellExecCallback(proc_event* event);

// Reports that copyPath, a copy of shellPath, was run with this command line, unless it was reported within the last
// hour or the command line is empty. Any thread, no lock held.
void GenCpAlarm(const std::string& copyPath, const std::string& command, const std::string& shellPath);
