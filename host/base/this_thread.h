// Names of threads, as ps and /proc/<pid>/task/<tid>/comm show them.
#pragma once

#include <string>

namespace Host {

// Names the calling thread, cut to the 15 bytes that the kernel keeps. Any thread.
void NameThisThread(const std::string& name);

}  // namespace Host
