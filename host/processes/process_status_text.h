// The kernel's text of /proc/<pid>/status.
#pragma once

#include <string_view>

#include "agent/process_utils.h"

namespace Host {

// Fills the record from the text, up to the line "Gid" behind which no field of the record stands. A line without its
// end was cut and does not count. False, with the record as it was, if the pid or the parent's is missing, or if a line
// of one of the record's fields is not in the kernel's form. Any thread.
bool ParseProcessStatus(std::string_view text, ProcessUtils::ProcStatus& status);

}  // namespace Host
