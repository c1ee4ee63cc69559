// An anonymous pipe whose ends have an owner each.
#pragma once

#include "host/base/descriptor.h"

namespace Host {

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

// A new one, closed in programs that are started. Throws std::system_error if the system refuses. Any thread.
Pipe MakePipe();

}  // namespace Host
