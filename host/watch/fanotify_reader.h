// The loop that serves one fanotify group.
#pragma once

#include <sys/fanotify.h>

#include <string>

#include "agent/monitor.h"
#include "host/base/descriptor.h"
#include "host/base/log.h"
#include "host/watch/fanotify_marks.h"

namespace Host {

// A group as its owner sees it, and as the loop does: the owner ends the loop by closing its descriptor, whose number
// may belong to something else in the next moment. Closing does not wake a reader either, so that the loop reads a
// duplicate.
struct FanotifyGroup {
    int owners = -1;  // the number of the owner's descriptor
    Descriptor duplicate;
    FanotifyMarks marks;

    // True if the owner's number still is this group's. Any thread.
    bool IsOwnersOpen() const;
};

class FanotifyReader {
public:
    // REQUIRES: group outlives the reader.
    FanotifyReader(const TavUtils::Monitor::FanotifyLoopArgs& args, FanotifyGroup& group)
        : event_(*args.event), running_(args.running), group_(group) {}

    // As TavUtils::Monitor::FanotifyLoop.
    void Run();

private:
    bool IsRunning() const;
    void AwaitOwnersClose() const;
    void ReadEvents();
    void Tell(const fanotify_event_metadata& event, const Descriptor& file);
    void TellAll();
    void Call(long number, const std::string& path, unsigned int mask);

    TavUtils::Monitor::FANOTIFY_EVENT& event_;
    int* const running_;
    FanotifyGroup& group_;
    LogPacer readFailures_;
    LogPacer losses_;
    LogPacer callFailures_;
};

}  // namespace Host
