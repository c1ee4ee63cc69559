// Escapes text from other processes for one line of the log or of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

// Appends text to line. Control characters (C0, DEL, C1) and bytes that are not valid UTF-8 become
// , \r, \t or \xNN. Appends at most limit bytes and never part of a character or escape. Returns false if something was
// omitted. Any thread.
bool AppendPrintable(std::string& line, std::string_view text, size_t limit);

}  // namespace Host
