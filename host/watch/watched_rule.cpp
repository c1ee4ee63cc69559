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
// Without IN_EXCL_UNLINK a file that is written after its name went to another one would pass for the other.
constexpr uint32_t names = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_EXCL_UNLINK | content;
constexpr uint32_t arrival = IN_CREATE | IN_MOVED_TO | ownEnd;
// The end of something that is held open is no event of its own before it is let go. A directory's parent tells at once,
// and a link has its count changed at once.
constexpr uint32_t directoryEnd = IN_DELETE | IN_MOVED_TO | ownEnd;
constexpr uint32_t linkEnd = IN_ATTRIB | ownEnd;

// A walk is of use only if it is still right when everything on it is watched.
constexpr int mostAttempts = 3;

struct Attachment {
    std::vector<WatchHold> holds;
    std::vector<int> way;
    std::vector<int> lastLinks;
    std::vector<Place> wayNames;
    std::vector<Place> names;
    std::optional<Place> awaited;
    int file = -1;
    bool isDirectory = false;
    bool isFileKnown = true;
    FileState state;
    int error = 0;
};

int Hold(Attachment& attachment, WatchTable& watches, const PathStep& step, uint32_t mask, bool isNeeded) {
    const WatchHold hold = watches.Hold(step.file.Get(), step.path, mask);
    if (hold.watch >= 0) {
        attachment.holds.push_back(hold);
    } else if (isNeeded || (errno != EACCES && errno != ENOENT)) {
        attachment.error = errno;
    }
    return hold.watch;
}

Attachment Attach(const std::vector<PathStep>& steps, WatchTable& watches) {
    using Kind = PathStep::Kind;
    Attachment made;
    const PathStep& end = steps.back();
    made.isDirectory = end.kind == Kind::directory;
    const bool isAwaiting = end.kind == Kind::missing;
    for (const PathStep& step : steps) {
        const bool isEnd = &step == &end;
        if (isEnd && (step.kind == Kind::directory || step.kind == Kind::file)) {
            made.file = Hold(made, watches, step, made.isDirectory ? names : content, made.isDirectory);
            made.isFileKnown = made.file >= 0 || made.error == 0;
            if (made.file >= 0 && !ReadFileState(step.file.Get(), made.state)) {
                made.error = errno;
            }
        } else if (step.kind == Kind::directory) {
            made.way.push_back(Hold(made, watches, step, ownEnd, false));
        } else if (step.kind == Kind::link) {
            const int link = Hold(made, watches, step, step.isLastName ? ownEnd : linkEnd, false);
            (step.isLastName ? made.lastLinks : made.way).push_back(link);
        }
        const PathStep& directory = steps[step.directory];
        if (step.isLastName && !step.name.empty()) {
            // A directory's parent may be a busy one: no more is asked of it than is needed.
            const uint32_t mask = made.isDirectory ? directoryEnd : names;
            made.names.push_back({Hold(made, watches, directory, mask, !made.isDirectory), step.name});
        } else if (step.kind == Kind::missing) {
            made.awaited = Place{Hold(made, watches, directory, arrival, true), step.name};
        }
        // With something in it, a directory on the way stays.
        if (isAwaiting && step.kind == Kind::directory && !step.name.empty()) {
            made.wayNames.push_back({Hold(made, watches, directory, directoryEnd, false), step.name});
        }
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

bool WatchedRule::IsOnWay(int watch) const {
    return std::find(way.begin(), way.end(), watch) != way.end();
}

bool WatchedRule::IsLastLink(int watch) const {
    return std::find(lastLinks.begin(), lastLinks.end(), watch) != lastLinks.end();
}

bool WatchedRule::IsOnWay(const Place& place) const {
    return std::find(wayNames.begin(), wayNames.end(), place) != wayNames.end();
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
            Release(made.holds, watches);
            return steps.back().error;
        }
        // The new holds come before the old ones go, so that no watch ends in between and takes its events along.
        Attachment next = Attach(steps, watches);
        Release(made.holds, watches);
        made = std::move(next);
        const std::vector<PathStep> again = WalkPath(rule.rule.path);
        error = again.back().error;
        if (error == 0 && !IsSameWalk(steps, again)) {
            error = EAGAIN;
        }
    }
    Release(rule.holds, watches);
    rule.holds = std::move(made.holds);
    rule.way = std::move(made.way);
    rule.lastLinks = std::move(made.lastLinks);
    rule.wayNames = std::move(made.wayNames);
    rule.names = std::move(made.names);
    rule.awaited = std::move(made.awaited);
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
    rule.holds.clear();
    rule.way.clear();
    rule.lastLinks.clear();
    rule.wayNames.clear();
    rule.names.clear();
    rule.awaited.reset();
    rule.file = -1;
}

}  // namespace Host
