// The entry point of orlim-agent, separate from main so that tests can link it.
#pragma once

namespace Host {

// Runs the command that argv names and returns the exit status. Main thread only.
int Main(int argc, const char* const* argv);

}  // namespace Host
