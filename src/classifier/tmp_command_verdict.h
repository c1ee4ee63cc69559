// Is a process that starts short commands doing so for a remote peer?
#pragma once

#include "classifier/tmp_command_list.h"

// True if a person may have typed the commands: the first at least 200 ms after the parent's start, and each at least
// 200 ms after the one before.
bool IsTypedByHand(int ppid, const std::vector<TPROC_INFO>& commands);

// Judges a parent whose commands have all ended, by its last command and by whether it waits for a recent connection;
// raises the alarm. Takes up to a second and the pauses of what it reads. Called on the watcher's task thread.
bool IsTmpCommandShell(int ppid, const TPROC_INFO& lastCommand);
