// Is a process that starts short commands doing so for a remote peer?
#pragma once

#include "classifier/tmp_command_list.h"

// True if a person may have typed the commands: the first at least 200 ms after the parent's start, and each at least
// 200 ms after the one before.
bool IsTypedByHand(int ppid, const std::vector<TPROC_INFO>& commands);

// Raises the alarm about a parent whose commands have all ended, if its last command and a wait for a recent connection
// speak for one. True if so, also where the alarm itself is then held back. Takes up to a second and the pauses of what
// it reads. Called on the watcher's task thread.
bool RaiseTmpCommandAlarm(int ppid, const TPROC_INFO& lastCommand);
