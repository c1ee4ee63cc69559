// Which detections are blind on a host that lacks a facility.
#pragma once

#include <string>
#include <vector>

#include "host/config/agent_config.h"

namespace Host {

// The facilities that detections need.
enum class Facility : unsigned int {
    module,            // the module starts: it needs its file, a valid configuration and an existing shell
    location,          // AGENT_LOCATION is unset; if it is set, the module does not search for reverse shells
    processes,         // /proc shows the host's processes and their programs
    descriptors,       // /proc/<pid>/fd of any process
    connectionTables,  // /proc/net/tcp
    processEvents,     // the process connector
    kernelWaits,       // /proc/<pid>/syscall, and stack or wchan, of a sleeping process
    inotify,
    fanotify,
    fileFlags,  // FS_IOC_GETFLAGS on the shells
};

// A missing facility. reason completes a sentence that begins with "because".
struct Lack {
    Facility facility;
    std::string reason;
};

struct BlindDetection {
    std::string name;
    std::string reason;  // all reasons, in the order of the lacks
};

// The detections that the configuration turns on and that miss all or some processes because of the lacks. In the order
// of docs/operations.md.
std::vector<BlindDetection> BlindDetections(const std::vector<Lack>& lacks, const AgentConfig& config);

}  // namespace Host
