#include "host/watch/watched_rule.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/watch/file_state.h"
#include "host/watch/path_walk.h"

namespace Host {

namespace {

constexpr uint32_t ownEnd = IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t content = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | ownEnd;
// Without IN_EXCL_UNLINK, writes to a file that has lost its name would be taken for writes to the file that got the
// name.
constexpr uint32_t names = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_EXCL_UNLINK | content;
constexpr uint32_t arrival = IN_CREATE | IN_MOVED_TO | ownEnd;
// The end of a file or directory that is held open is an event only once it is released. But a directory's parent
// reports the removal at once, and a link's count changes at once.
constexpr uint32_t directoryEnd = IN_DELETE | IN_MOVED_TO | ownEnd;
constexpr uint32_t linkEnd = IN_ATTRIB | ownEnd;

// A walk is valid only if it is still right once everything on it is watched.
constexpr int mostAttempts = 3;

struct Attachment {
    PathWatches watched;
    int file = -1;
    bool isDirectory = false;
    bool isFileKnown = true;
    FileState state;
    int error = 0;
};

int Hold(Attachment& attachment, WatchTable& watches, const PathStep& step, uint32_t mask, bool isNeeded) {
    const WatchHold hold = watches.Hold(step.file.Get(), step.path, mask);
    if (hold.watch >= 0) {
        attachment.watched.holds.push_back(hold);
    } else if (isNeeded || (errno != EACCES && errno != ENOENT)) {
        attachment.error = errno;
    }
    return hold.watch;
}

// Watches the target.
void HoldEnd(Attachment& made, WatchTable& watches, const PathStep& end) {
    made.file = Hold(made, watches, end, made.isDirectory ? names : content, made.isDirectory);
    made.isFileKnown = made.file >= 0 || made.error == 0;
    if (made.file >= 0 && !ReadFileState(end.file.Get(), made.state)) {
        made.error = errno;
    }
}

// Watches the directory of a name on which the path depends.
void HoldName(Attachment& made, WatchTable& watches, const PathStep& step, const PathStep& directory, bool isAwaiting) {
    if (step.isLastName && !step.name.empty()) {
        // A directory's parent may be busy: requests no more events than needed.
        const uint32_t mask = made.isDirectory ? directoryEnd : names;
        made.watched.names.push_back({Hold(made, watches, directory, mask, !made.isDirectory), step.name});
    } else if (step.kind == PathStep::Kind::missing) {
        made.watched.awaited = Place{Hold(made, watches, directory, arrival, true), step.name};
    }
    // A directory of the path that has something in it cannot be removed.
    if (isAwaiting && step.kind == PathStep::Kind::directory && !step.name.empty()) {
        made.watched.waypointNames.push_back({Hold(made, watches, directory, directoryEnd, false), step.name});
    }
}

Attachment Attach(const std::vector<PathStep>& steps, WatchTable& watches) {
    using Kind = PathStep::Kind;
    Attachment made;
    PathWatches& watched = made.watched;
    const PathStep& end = steps.back();
    made.isDirectory = end.kind == Kind::directory;
    for (const PathStep& step : steps) {
        if (&step == &end && (step.kind == Kind::directory || step.kind == Kind::file)) {
            HoldEnd(made, watches, step);
        } else if (step.kind == Kind::directory) {
            watched.waypoints.push_back(Hold(made, watches, step, ownEnd, false));
        } else if (step.kind == Kind::link) {
            const int link = Hold(made, watches, step, step.isLastName ? ownEnd : linkEnd, false);
            (step.isLastName ? watched.finalLinks : watched.waypoints).push_back(link);
        }
        HoldName(made, watches, step, steps[step.directory], end.kind == Kind::missing);
    }
    return made;
}

bool IsSameWalk(const std::vector<PathStep>& one, const std::vector<PathStep>& other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), [](const PathStep& a, const PathStep& b) {
        FileState stateA;
        FileState stateB;
        if (a.kind != b.kind || a.name != b.name) {
            return false;
        }
        return ReadFileState(a.file.Get(), stateA) == ReadFileState(b.file.Get(), stateB) && IsSameFile(stateA, stateB);
    });
}

void Release(const std::vector<WatchHold>& holds, WatchTable& watches) {
    for (const WatchHold& hold : holds) {
        watches.Release(hold);
    }
}

}  // namespace

bool WatchedRule::HasName(const Place& place) const {
    return std::find(names.begin(), names.end(), place) != names.end();
}

bool WatchedRule::IsFinalLink(int watch) const {
    return std::find(finalLinks.begin(), finalLinks.end(), watch) != finalLinks.end();
}

bool WatchedRule::GoesThrough(int waypoint) const {
    return std::find(waypoints.begin(), waypoints.end(), waypoint) != waypoints.end();
}

bool WatchedRule::GoesThrough(const Place& place) const {
    return std::find(waypointNames.begin(), waypointNames.end(), place) != waypointNames.end();
}

bool WatchedRule::DependsOn(int watch) const {
    const auto isIn = [watch](const Place& place) { return place.watch == watch; };
    return GoesThrough(watch) || std::any_of(names.begin(), names.end(), isIn) || (awaited && isIn(*awaited));
}

bool IsWatchablePath(const std::string& path) {
    if (path.empty()) {
        return true;
    }
    if (path.front() != '/' || path.size() >= PATH_MAX || path.find('\0') != std::string::npos) {
        return false;
    }
    size_t steps = 1;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        if (end - begin > NAME_MAX) {
            return false;
        }
        steps += end > begin ? 1 : 0;
        begin = end + 1;
    }
    return steps <= mostSteps;
}

Descriptor OpenRulePath(const WatchedRule& rule) {
    const std::string& path = rule.rule.path;
    return Descriptor(open(path.empty() ? "/" : path.c_str(), O_PATH | O_CLOEXEC));
}

std::string JoinPath(const std::string& directory, const std::string& name) {
    return directory.ends_with('/') ? directory + name : directory + "/" + name;
}

int AttachRule(WatchedRule& rule, WatchTable& watches) {
    Attachment made;
    rule.isComplete = false;
    int error = EAGAIN;
    for (int attempt = 0; attempt < mostAttempts && error == EAGAIN; ++attempt) {
        const std::vector<PathStep> steps = WalkPath(rule.rule.path);
        if (steps.back().error != 0) {
            Release(made.watched.holds, watches);
            return steps.back().error;
        }
        // Takes the new holds before it releases the old ones, so that no watch ends in between and loses its events.
        Attachment next = Attach(steps, watches);
        Release(made.watched.holds, watches);
        made = std::move(next);
        const std::vector<PathStep> again = WalkPath(rule.rule.path);
        error = again.back().error;
        if (error == 0 && !IsSameWalk(steps, again)) {
            error = EAGAIN;
        }
    }
    Release(rule.holds, watches);
    static_cast<PathWatches&>(rule) = std::move(made.watched);
    if (made.isFileKnown) {
        rule.file = made.file;
        rule.isDirectory = made.isDirectory;
        rule.state = made.state;
    }
    error = made.error != 0 ? made.error : error;
    rule.isComplete = error == 0;
    return error;
}

void DetachRule(WatchedRule& rule, WatchTable& watches) {
    Release(rule.holds, watches);
    static_cast<PathWatches&>(rule) = {};
    rule.file = -1;
}

}  // namespace Host
