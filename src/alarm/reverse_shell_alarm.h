// From a finding of the classifier to the event on the agent's queue. Neither entry reports anything back: a finding
// that a check holds back is dropped without a word. Called on task threads, no lock held; both sleep, and attribution
// alone may take seconds.
#pragma once

#include "inspect/process_snapshot.h"
#include "inspect/socket_table.h"

// For a shell known by its pid alone.
void AddRshellAlarm(int pid, const SocketInfo& sock, unsigned long inode);

// For a process already in hand; pid is its parent.
void AddRshellAlarmFanotify(int pid, const ProcInfo& proc, const SocketInfo& sock, unsigned long inode);
