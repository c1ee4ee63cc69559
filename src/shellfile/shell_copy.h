// Programs that are a copy of a shell under another name.
#pragma once

#include <linux/cn_proc.h>

#include <string>

// Reports the exec of a copy; any other event is ignored. One stat(2) for each exec on the host of a program that is no
// shell; a digest where its size is that of a shell. Called on the process monitor's thread.
void ShellExecCallback(proc_event* event);

// Raises the alarm for copyPath, run by this command line, unless it has been raised within the last hour. shellPath is
// the shell that it is a copy of. Any thread, no lock held.
void GenCpAlarm(const std::string& copyPath, const std::string& command, const std::string& shellPath);
