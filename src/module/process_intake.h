// The front end of the instant scan: which processes were active, and which of them are quiet now. Not there yet: both
// entries do nothing.
#pragma once

#include <linux/cn_proc.h>

// Notes a process that has forked. Called on the process monitor's thread.
void OnProcessEvent(proc_event* event);

// Entry of the task "check shell by netlink procs". arg is not read. Returns null.
void* CheckNetlinkProcsTask(void* arg);
