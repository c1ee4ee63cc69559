// Time stamps for events.
#pragma once

#include <string>

namespace TavUtils::TimeMaster {

// Stores the current time in UTC as ISO 8601 with milliseconds, such as "2024-05-01T12:34:56.789Z". Any thread.
void GetCurrentUTC(std::string& text);

}  // namespace TavUtils::TimeMaster
