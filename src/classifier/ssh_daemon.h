// The one parent that may hold a shell's terminal and a foreign connection.
#pragma once

// True if the process runs the ssh daemon, by the inode of its program, or if its program cannot be told. Any thread.
bool IsSshdShell(long pid);
