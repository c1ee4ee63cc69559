// Where an attack came from, as far as its processes tell.
#pragma once

#include "alarm/rshell_alarm_info.h"

// Sets record.sourcePath and record.hash from the rest of the record; sourcePath comes in as the script that the
// process or its parent holds open, if any. The hash is mostly that of record.path, also where sourcePath names another
// file: the program of the parent, or the script that one of the two was given. Where nothing but an ordinary command
// line is left, sourcePath is the parent's command line and the hash is that text's. Slow: it reads files whole and
// arguments byte by byte. Any thread, no lock held.
void FindAttackSource(RshellAlarmInfo& record);
