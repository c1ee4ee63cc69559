// Makes text that other processes chose fit for one line of the log or of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

// Appends text to line with control characters (C0, DEL, C1) and bytes that are not valid UTF-8 written as \n, \r, \t
// or \xNN. Appends at most limit bytes and never a part of a character or escape; false if something was omitted. Any
// thread.
bool AppendPrintable(std::string& line, std::string_view text, size_t limit);

}  // namespace Host
