// Finds the file that a process was given to run.
#pragma once

#include <string>

#include "alarm/rshell_alarm_info.h"
#include "inspect/process_snapshot.h"

// True for "-c" and "-x", the options after which a shell runs a given command.
bool IsExecTmpCommand(const std::string& word);

// Resolves a path from a command line, relative paths against cwd. Empty if there is no such file. Any thread.
std::string ResolveArgumentPath(std::string path, std::string cwd);

// Looks for the first argument of the process that names a regular file. Returns true and sets record.sourcePath to
// that file unless it is an ordinary command of the host. Takes 1 ms per byte of the command line. Any thread, no lock
// held.
bool FindScriptArgument(RshellAlarmInfo& record, long pid);

// True if the process runs a command or file of the host's user: a shell holds a script open, or the second word of the
// command line is "-c", "-x" or names a regular file. Any thread.
bool ProduceByBusinessFile(const ProcInfo& proc);
