// The loop that serves one fanotify group.
#pragma once

#include <sys/fanotify.h>

#include <string>

#include "host/base/log.h"
#include "host/watch/fanotify_group.h"

namespace Host {

class FanotifyReader {
public:
    // Called with (process, path, FAN_* mask). The process is 0 if the file is to be examined without an event. May
    // be null.
    using Callback = void (*)(long number, const char* path, unsigned int mask);

    // REQUIRES: group and running outlive the reader; running is accessed only atomically.
    FanotifyReader(FanotifyGroup& group, int& running, Callback callback)
        : group_(group), running_(running), callback_(callback) {}

    // Reports the group's events while running is non-zero and the owner's descriptor is open. Returns once the owner
    // has closed its descriptor or has had time to do so.
    void Run();

private:
    bool IsRunning() const;
    void AwaitOwnersClose() const;
    void ReadEvents();
    void Report(const fanotify_event_metadata& event, const Descriptor& file);
    void ReportAllMarks();
    void Call(long number, const std::string& path, unsigned int mask);

    FanotifyGroup& group_;
    int& running_;
    const Callback callback_;
    LogPacer readFailures_;
    LogPacer losses_;
    LogPacer callFailures_;
};

}  // namespace Host
