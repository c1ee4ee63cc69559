#include "host/watch/fanotify_reader.h"

#include <fcntl.h>
#include <linux/kcmp.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>

#include "agent/files.h"
#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How often the flag and the owner's descriptor are looked at: nothing tells of their change but the wait for the
// thread that follows it, where the thread is one that can be waited for.
constexpr int lookPauseMs = 100;
constexpr int waitedForLookPauseMs = 1000;
// How long after the end the owner may take to close its descriptor.
constexpr milliseconds closePatience(300);
constexpr int closePauseMs = 5;
// How long a file that has replaced a marked one may go unmarked.
constexpr milliseconds renewPause(1000);

std::string LinkOf(int fd) {
    return TavUtils::FileAttribute::GetRealLink("/proc/self/fd/" + std::to_string(fd));
}

bool IsFanotify(int fd) {
    return LinkOf(fd).find("[fanotify]") != std::string::npos;
}

}  // namespace

bool FanotifyGroup::IsOwnersOpen() const {
    const long order = syscall(SYS_kcmp, getpid(), getpid(), KCMP_FILE, owners, duplicate.Get());
    if (order >= 0 || errno == EBADF) {
        return order == 0;
    }
    // A kernel without kcmp, or one that does not grant it: then another group of that number passes for this one.
    return IsFanotify(owners);
}

void FanotifyReader::Run() {
    const WakeSignal* const stop = ThisThreadsStop();
    auto renewal = steady_clock::now() + renewPause;
    while (IsRunning() && group_.IsOwnersOpen()) {
        // A descriptor of -1 is passed over (poll(2)).
        std::array<pollfd, 2> waiting{
            {{group_.duplicate.Get(), POLLIN, 0}, {stop == nullptr ? -1 : stop->Descriptor(), POLLIN, 0}}};
        poll(waiting.data(), waiting.size(), stop == nullptr ? lookPauseMs : waitedForLookPauseMs);
        if (waiting[1].revents != 0) {
            break;
        }
        if (waiting[0].revents != 0) {
            ReadEvents();
        }
        if (steady_clock::now() >= renewal) {
            group_.marks.Renew(group_.duplicate.Get());
            renewal = steady_clock::now() + renewPause;
        }
    }
    AwaitOwnersClose();
    if (!group_.IsOwnersOpen()) {
        // The owner closes once more when this thread has gone, and the number may be another's by then.
        std::atomic_ref(event_.fd).store(-1);
    }
}

bool FanotifyReader::IsRunning() const {
    return std::atomic_ref(*running_).load() != 0;
}

// An owner that clears the flag and then closes is not done yet when the flag is seen. A thread that can be waited for
// takes that wait for the sign, because it comes behind the close.
void FanotifyReader::AwaitOwnersClose() const {
    const WakeSignal* const stop = ThisThreadsStop();
    pollfd waitedFor{stop == nullptr ? -1 : stop->Descriptor(), POLLIN, 0};
    const auto deadline = steady_clock::now() + closePatience;
    while (group_.IsOwnersOpen() && (stop != nullptr || steady_clock::now() < deadline)) {
        if (poll(&waitedFor, 1, stop == nullptr ? closePauseMs : lookPauseMs) > 0) {
            return;
        }
    }
}

void FanotifyReader::ReadEvents() {
    // Each event brings a descriptor, of which the process has not too many.
    constexpr size_t mostEvents = 32;
    alignas(fanotify_event_metadata) std::array<char, mostEvents * sizeof(fanotify_event_metadata)> buffer;
    const ssize_t size = group_.duplicate.Read(buffer.data(), buffer.size());
    if (size < 0) {
        if (errno == EAGAIN) {
            return;
        }
        if (readFailures_.MayLog()) {
            LogError("fanotify events cannot be read, and every marked path is looked at instead: %s",
                     std::strerror(errno));
        }
        // Not at once: what ails the process, such as a want of descriptors, may last. The event itself is gone.
        poll(nullptr, 0, lookPauseMs);
        TellAll();
        return;
    }
    auto left = static_cast<size_t>(size);
    const auto* event = reinterpret_cast<const fanotify_event_metadata*>(buffer.data());
    for (; FAN_EVENT_OK(event, left); event = FAN_EVENT_NEXT(event, left)) {
        const Descriptor file(event->fd);
        if (event->vers == FANOTIFY_METADATA_VERSION && IsRunning()) {
            Tell(*event, file);
        }
    }
}

void FanotifyReader::Tell(const fanotify_event_metadata& event, const Descriptor& file) {
    if ((event.mask & FAN_Q_OVERFLOW) != 0) {
        if (losses_.MayLog()) {
            LogWarning("the kernel has dropped fanotify events, its queue was full: every marked path is looked at");
        }
        TellAll();
        return;
    }
    // To look at a file is to open and close it: told of its own closes, who looks at each close never ends.
    if (event.pid == getpid() || !file.IsOpen()) {
        return;
    }
    struct stat attributes {};
    std::string path;
    if (fstat(file.Get(), &attributes) == 0) {
        path = group_.marks.PathOf(attributes.st_dev, attributes.st_ino);
    }
    Call(event.pid, path.empty() ? LinkOf(file.Get()) : path, static_cast<unsigned int>(event.mask));
}

void FanotifyReader::TellAll() {
    for (const FanotifyMarks::Mark& mark : group_.marks.All()) {
        if (!IsRunning()) {
            return;
        }
        Call(0, mark.path, mark.mask);
    }
}

void FanotifyReader::Call(long number, const std::string& path, unsigned int mask) {
    if (event_.callback == nullptr) {
        return;
    }
    // The agent outlives whatever a module throws at it.
    try {
        event_.callback(number, path.c_str(), mask);
    } catch (const std::exception& error) {
        if (callFailures_.MayLog()) {
            LogError("a callback for fanotify failed: %s", error.what());
        }
    } catch (...) {
        if (callFailures_.MayLog()) {
            LogError("a callback for fanotify failed with an unknown exception");
        }
    }
}

}  // namespace Host
