// The program, apart from its name.
#pragma once

namespace Host {

int Main(int argc, const char* const* argv);

}  // namespace Host
