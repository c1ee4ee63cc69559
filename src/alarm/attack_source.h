// Finds the program, script or command line that started an attack.
#pragma once

#include "alarm/rshell_alarm_info.h"

// Sets record.sourcePath and record.hash from the rest of the record. On entry sourcePath is the script that the
// process or its parent holds open, if any; it is kept if nothing better is found. The hash is the SHA-256 of
// record.path even if sourcePath names another file: the parent's program, or a script from the arguments of either
// process. As a last resort sourcePath is the parent's command line and the hash is that of its text. Slow: reads whole
// files, and arguments byte by byte. Any thread, no lock held.
void FindAttackSource(RshellAlarmInfo& record);
