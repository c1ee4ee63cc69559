// The loop that serves one fanotify group.
#pragma once

#include <sys/fanotify.h>

#include <vector>

#include "agent/monitor.h"
#include "host/services/descriptor.h"
#include "host/services/fanotify_marks.h"
#include "host/services/log_pacer.h"

namespace Host {

// Reads a duplicate of the group's descriptor. The owner ends the loop by closing its own, whose number may belong to
// something else in the next moment, and closing does not wake a reader.
class FanotifyReader {
public:
    // REQUIRES: marks outlives the reader.
    FanotifyReader(const TavUtils::Monitor::FanotifyLoopArgs& args, FanotifyMarks& marks);

    // As TavUtils::Monitor::FanotifyLoop.
    void Run();

private:
    bool IsRunning() const;
    bool IsOwnersOpen() const;
    void AwaitOwnersClose() const;
    void ReadEvents();
    void Tell(const fanotify_event_metadata& event, const Descriptor& file);
    void TellAll();
    void Call(long number, const std::string& path, unsigned int mask);

    TavUtils::Monitor::FANOTIFY_EVENT& event_;
    int* const running_;
    FanotifyMarks& marks_;
    const int owners_;  // the number of the owner's descriptor
    Descriptor group_;
    LogPacer readFailures_;
    LogPacer losses_;
    LogPacer callFailures_;
};

}  // namespace Host
