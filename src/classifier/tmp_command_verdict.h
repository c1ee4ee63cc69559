// Decides whether a process that starts short commands does so for a remote peer.
#pragma once

#include "classifier/tmp_command_list.h"

// True if a person may have typed the commands: the first started at least 200 ms after the parent, and each other at
// least 200 ms after the one before.
bool IsTypedByHand(int ppid, const std::vector<TPROC_INFO>& commands);

// Raises the alarm for a parent whose commands have all ended if it waits for a recent connection and is not exempt.
// True if so, even if a later check suppresses the alarm. Takes up to a second, plus the pauses of its reads. Called on
// the watcher's task thread.
bool RaiseTmpCommandAlarm(int ppid, const TPROC_INFO& lastCommand);
