// The kernel function named in /proc/<pid>/wchan, where a task sleeps.
#pragma once

#include <string>
#include <string_view>

// True if a task with this text in its wchan may be blocked in function: "pipe_read", "inet_recvmsg",
// "unix_stream_recvmsg" or "do_select". The text is one name, such as "poll_schedule_timeout.constprop.0"; what follows
// a dot or a newline does not count. False for any other function. Some names serve several waits, so the call and its
// descriptor have to agree. Any thread.
bool IsChannelOfWait(std::string_view function, std::string_view text);
