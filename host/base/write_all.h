// Writing a text to a descriptor, whatever interrupts it.
#pragma once

#include <cstddef>
#include <string_view>

namespace Host {

struct WriteResult {
    size_t written;  // bytes that went out, less than asked for only with an error
    int error;       // errno of the write that failed, 0 if none did
};

// Writes all of text; waits as long as a non-blocking descriptor is full. Any thread.
WriteResult WriteAll(int fd, std::string_view text);

}  // namespace Host
