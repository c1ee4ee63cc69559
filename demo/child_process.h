// Processes that the demonstration starts, and the end of all that come from them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "host/base/descriptor.h"

namespace Host {

// An anonymous pipe.
struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

// A new one, closed in programs that are started. Throws std::system_error if the system refuses. Any thread.
Pipe MakePipe();

// A process of this very program, doing the part of the stage that its arguments name.
class StageProcess {
public:
    // Starts it in a session of its own, with an input and an output towards this object, and standard error at
    // /dev/null. It is killed when the calling thread ends. Throws std::system_error if that fails.
    explicit StageProcess(const std::vector<std::string>& arguments);

    pid_t Pid() const { return pid_; }

    // The next line of its output, without the line end. False when the output has ended or patience is over.
    bool ReadLine(std::string& line, std::chrono::milliseconds patience);

    // Sends it a line end. It may have ended.
    void Prompt() const;

private:
    pid_t pid_ = -1;
    Descriptor input_;
    Descriptor output_;
    std::string buffer_;
};

// From now on, a process whose parent ends while this process is among its ancestors becomes this one's child.
void AdoptOrphans();

// Kills all children of this process, those that become its children by that, and so on, and reaps them. False if some
// are left after patience.
bool EndAllChildren(std::chrono::milliseconds patience);

}  // namespace Host
