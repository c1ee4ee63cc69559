// Checks for orlim-agent check: restrictions that hide parts of the host whatever the agent's capabilities. The Check
// functions add their lines to the report.
#pragma once

#include <string>

#include "host/check/report.h"

namespace Host {

// The hidepid option of the mount at /proc, from the text of /proc/self/mounts; empty if there is none.
std::string HidepidOption(const std::string& mounts);

// True if the target of a link in /proc/<pid>/ns, such as "pid:[4026531836]", is not the initial namespace of its kind,
// "pid" or "user". Empty, as on a kernel without such namespaces, gives false.
bool IsLaterNamespace(const std::string& target);

// Adds the line for the text of /proc/sys/kernel/yama/ptrace_scope; empty if the file does not exist.
void ReportYama(const std::string& scope, CheckReport& report);

// Adds the line for the text of /sys/kernel/security/lockdown; empty if the file does not exist.
void ReportLockdown(const std::string& modes, CheckReport& report);

void CheckHidepid(CheckReport& report);
void CheckNamespaces(CheckReport& report);
void CheckYama(CheckReport& report);
void CheckLockdown(CheckReport& report);

}  // namespace Host
