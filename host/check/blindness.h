// Which detections see nothing on a host that lacks something.
#pragma once

#include <string>
#include <vector>

#include "host/config/agent_config.h"

namespace Host {

// What detections stand on.
enum class Facility : unsigned int {
    module,            // the module starts: its file, a configuration, a shell to look after
    location,          // AGENT_LOCATION is not set, which keeps the search for reverse shells off
    processes,         // /proc shows the host's processes and their programs
    descriptors,       // /proc/<pid>/fd of any process
    connectionTables,  // /proc/net/tcp
    processEvents,     // the process connector
    kernelWaits,       // /proc/<pid>/stack and /proc/<pid>/syscall of a process asleep
    inotify,
    fanotify,
    fileFlags,  // FS_IOC_GETFLAGS on the shells
};

// A facility that is not there. reason is the rest of a sentence that begins with "because".
struct Lack {
    Facility facility;
    std::string reason;
};

struct BlindDetection {
    std::string name;
    std::string reason;  // all that make it blind, in the order of the lacks
};

// The detections that the configuration turns on and that see nothing, or nothing of some processes, where this is
// lacking. In the order of docs/operations.md.
std::vector<BlindDetection> BlindDetections(const std::vector<Lack>& lacks, const AgentConfig& config);

}  // namespace Host
