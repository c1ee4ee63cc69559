// Recognizes the ssh daemon, which may hold a shell's terminal and a foreign connection.
#pragma once

// True if the process runs the ssh daemon, recognized by inode, or if its program cannot be read. Any thread.
bool IsSshdShell(long pid);
