// How the kernel finds a path: component by component, link by link.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/base/descriptor.h"

namespace Host {

// A bound for the descriptors that a walk holds.
constexpr size_t mostSteps = 300;

struct PathStep {
    enum class Kind { directory, link, file, missing };

    Kind kind = Kind::missing;
    int error = 0;            // of a look-up that failed for another reason than absence; the kind is missing then
    Descriptor file;          // open with O_PATH; closed or of no use if missing
    size_t directory = 0;     // the step whose directory the name was looked up in
    std::string name;         // empty for the root
    std::string path;         // where it is, free of links
    bool isLastName = false;  // no component was left: the path's last, or one that a link in its place leads to
};

// The steps of an absolute path in the order of the look-ups, the root first; the empty path is the root's. It ends
// with the file that the path leads to, or with the first step that is missing: not there, not to be looked up, a link
// or a step too many, or something else where a directory is needed. Any thread.
std::vector<PathStep> WalkPath(const std::string& path);

}  // namespace Host
