// Turns a finding of the classifier into an event on the agent's queue. A finding that fails a check is dropped without
// a message; the caller is not informed. Called on task threads, no lock held. Both functions sleep, and attribution
// alone may take seconds.
#pragma once

#include "inspect/process_snapshot.h"
#include "inspect/socket_table.h"

// Reports the shell pid, which is read here.
void AddRshellAlarm(int pid, const SocketInfo& sock, unsigned long inode);

// Reports proc, already read; pid is its parent.
void AddRshellAlarmFanotify(int pid, const ProcInfo& proc, const SocketInfo& sock, unsigned long inode);
