// Looks up a path as the kernel does: component by component, link by link.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/base/descriptor.h"

namespace Host {

// Bounds the number of descriptors that a walk holds.
constexpr size_t mostSteps = 300;

struct PathStep {
    enum class Kind { directory, link, file, missing };

    Kind kind = Kind::missing;
    int error = 0;            // errno of a look-up that failed for another reason than absence; kind is then missing
    Descriptor file;          // open with O_PATH; closed or unusable if missing
    size_t directory = 0;     // index of the step in whose directory the name was looked up
    std::string name;         // empty for the root
    std::string path;         // its real path, free of links
    bool isLastName = false;  // no component is left: the path's last name, or one that a link in its place leads to
};

// Returns the steps of an absolute path in the order of the look-ups, the root first; the empty path is the root. Ends
// with the file that the path leads to, or with the first step that is missing: it does not exist, cannot be looked up,
// exceeds the limit of links or steps, or is not a directory where one is needed. Any thread.
std::vector<PathStep> WalkPath(const std::string& path);

}  // namespace Host
