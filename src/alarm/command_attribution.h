// Which file a process was told to run.
#pragma once

#include <string>

#include "alarm/rshell_alarm_info.h"
#include "inspect/process_snapshot.h"

// True for "-c" and "-x": the word behind a shell's name that is taken to make the rest of the command line a
// command of its own.
bool IsExecTmpCommand(const std::string& word);

// What a path on a command line resolves to, taken from cwd where it is relative; empty if there is no such file. Any
// thread.
std::string ResolveArgumentPath(std::string path, std::string cwd);

// Looks through the arguments of the process for the first that names a regular file. True, with record.sourcePath set
// to that file, unless it is an ordinary command of the host. Costs 1 ms a byte of the command line. Any thread, no
// lock held.
bool FindScriptArgument(RshellAlarmInfo& record, long pid);

// True if the process runs a file of the host's user: a script held open by a shell, or a second word of its command
// line that is "-c", "-x" or names a regular file. Any thread.
bool ProduceByBusinessFile(const ProcInfo& proc);
