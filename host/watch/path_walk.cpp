#include "host/watch/path_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <string_view>
#include <utility>

namespace Host {

namespace {

constexpr int openFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
// The kernel's own limit on links, path_resolution(7).
constexpr int mostLinks = 40;

void PushFront(std::deque<std::string>& names, std::string_view path) {
    std::deque<std::string> before;
    while (!path.empty()) {
        const size_t end = path.find('/');
        const std::string_view name = path.substr(0, end);
        if (!name.empty() && name != ".") {
            before.emplace_back(name);
        }
        path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
    }
    names.insert(names.begin(), before.begin(), before.end());
}

std::string Child(const std::string& directory, const std::string& name) {
    if (name == "..") {
        return directory.substr(0, std::max<size_t>(directory.rfind('/'), 1));
    }
    std::string path = directory == "/" ? std::string() : directory;
    path += '/';
    return path += name;
}

// Links can contain names that are too long.
bool IsAbsence(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

void Fail(PathStep& step, int error) {
    step.kind = PathStep::Kind::missing;
    step.error = IsAbsence(error) ? 0 : error;
}

// Sets kind and error from the descriptor, or from errno if it is closed.
void Classify(PathStep& step) {
    struct stat attributes {};
    if (!step.file.IsOpen() || fstat(step.file.Get(), &attributes) != 0) {
        Fail(step, errno);
    } else if (S_ISDIR(attributes.st_mode)) {
        step.kind = PathStep::Kind::directory;
    } else {
        step.kind = S_ISLNK(attributes.st_mode) ? PathStep::Kind::link : PathStep::Kind::file;
    }
}

PathStep LookUp(const PathStep& directory, size_t index, const std::string& name) {
    PathStep step;
    step.directory = index;
    step.name = name;
    step.path = Child(directory.path, name);
    step.file = Descriptor(openat(directory.file.Get(), name.c_str(), openFlags));
    Classify(step);
    return step;
}

// Returns an empty text on failure; the step is then marked as missing.
std::string TargetOf(PathStep& link) {
    std::string target(4096, '\0');
    const ssize_t length = readlinkat(link.file.Get(), "", target.data(), target.size());
    if (length <= 0) {
        Fail(link, length < 0 ? errno : ENOENT);
    }
    target.resize(static_cast<size_t>(length > 0 ? length : 0));
    return target;
}

}  // namespace

std::vector<PathStep> WalkPath(const std::string& path) {
    std::vector<PathStep> steps(1);
    steps[0].path = '/';
    steps[0].file = Descriptor(open("/", openFlags | O_DIRECTORY));
    Classify(steps[0]);
    std::deque<std::string> names;
    PushFront(names, path);
    steps[0].isLastName = names.empty();
    size_t directory = 0;
    int links = 0;
    while (!names.empty() && steps.back().kind != PathStep::Kind::missing) {
        const std::string name = std::move(names.front());
        names.pop_front();
        PathStep step = LookUp(steps[directory], directory, name);
        step.isLastName = names.empty();
        std::string target;
        if (step.kind == PathStep::Kind::link) {
            target = TargetOf(step);
        }
        const bool isTooFar = steps.size() >= mostSteps || (step.kind == PathStep::Kind::link && ++links > mostLinks);
        const bool isBlocked = step.kind == PathStep::Kind::file && !names.empty();
        if (isTooFar || isBlocked) {
            step.kind = PathStep::Kind::missing;
        }
        if (step.kind == PathStep::Kind::link) {
            PushFront(names, target);
            directory = target.front() == '/' ? 0 : directory;
        } else if (step.kind == PathStep::Kind::directory) {
            directory = steps.size();
        }
        steps.push_back(std::move(step));
    }
    if (steps.back().kind == PathStep::Kind::link) {
        // A link to "/" or to "." leaves no name to look up.
        steps.push_back(LookUp(steps[directory], directory, "."));
        steps.back().path = steps[directory].path;
        steps.back().isLastName = true;
    }
    return steps;
}

}  // namespace Host
