// Starts processes of the demonstration, and ends them with all their descendants.
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

// A new pipe; both ends are close-on-exec. Throws std::system_error on failure. Any thread.
Pipe MakePipe();

// A process that runs this program with other arguments, to stage a part of the demonstration.
class StageProcess {
public:
    // Starts it in a new session, with standard input and output connected to this object and standard error to
    // /dev/null. It is killed when the calling thread ends. Throws std::system_error on failure.
    explicit StageProcess(const std::vector<std::string>& arguments);

    pid_t Pid() const { return pid_; }

    // Reads the next line of its output, without the line end. False at the end of the output or after patience.
    bool ReadLine(std::string& line, std::chrono::milliseconds patience);

    // Sends an empty line. Harmless if the process has ended.
    void Prompt() const;

private:
    pid_t pid_ = -1;
    Descriptor input_;
    Descriptor output_;
    std::string buffer_;
};

// Makes this process a subreaper: orphaned descendants become its children.
void AdoptOrphans();

// Kills and reaps all children of this process, including those that become its children meanwhile. False if some are
// left after patience.
bool EndAllChildren(std::chrono::milliseconds patience);

}  // namespace Host
