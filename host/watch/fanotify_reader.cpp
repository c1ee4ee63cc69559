#include "host/watch/fanotify_reader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>

#include "agent/files.h"
#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

namespace {

using std::chrono::milliseconds;

// How often the loop checks the flag and the owner's descriptor: neither change is an event. If another thread can wait
// for this one, that wait follows the change and wakes the loop.
constexpr milliseconds lookPause(100);
constexpr milliseconds waitedForLookPause(1000);
// How long the loop gives its owner to close the descriptor.
constexpr milliseconds closePatience(300);
constexpr milliseconds closePause(5);
// How long a file that replaced a marked one may stay unmarked if its path cannot be monitored.
constexpr milliseconds renewPause(1000);

// Readable once another thread waits for this one to end. Poll ignores the -1 of a thread that nobody can wait for.
pollfd StopOf(const WakeSignal* stop) {
    return {stop == nullptr ? -1 : stop->Descriptor(), POLLIN, 0};
}

}  // namespace

void FanotifyReader::Run() {
    const WakeSignal* const stop = ThisThreadsStop();
    auto renewal = Clock::Now() + renewPause;
    while (IsRunning() && group_.IsOwnersOpen()) {
        std::array<pollfd, 3> waiting{
            {{group_.duplicate.Get(), POLLIN, 0}, StopOf(stop), {group_.replaced.Get(), POLLIN, 0}}};
        Clock::Poll(waiting, Clock::Now() + (stop == nullptr ? lookPause : waitedForLookPause));
        if (waiting[1].revents != 0) {
            break;
        }
        if (waiting[0].revents != 0) {
            ReadEvents();
        }
        if (const auto now = Clock::Now(); waiting[2].revents != 0 || now >= renewal) {
            eventfd_t ignored = 0;
            eventfd_read(group_.replaced.Get(), &ignored);
            if (group_.marks.Renew(group_.duplicate.Get())) {
                // The new file may have changed before it was marked.
                ReportAllMarks();
            }
            renewal = now + renewPause;
        }
    }
    AwaitOwnersClose();
}

bool FanotifyReader::IsRunning() const {
    return std::atomic_ref(running_).load() != 0;
}

// An owner that clears the flag and then closes has not finished when the loop sees the flag. If the thread can be
// waited for, that wait is the sign, because it follows the close.
void FanotifyReader::AwaitOwnersClose() const {
    const WakeSignal* const stop = ThisThreadsStop();
    const auto deadline = Clock::Now() + closePatience;
    while (group_.IsOwnersOpen() && (stop != nullptr || Clock::Now() < deadline)) {
        pollfd waitedFor = StopOf(stop);
        if (Clock::Poll({&waitedFor, 1}, Clock::Now() + (stop == nullptr ? closePause : lookPause)) > 0) {
            return;
        }
    }
}

void FanotifyReader::ReadEvents() {
    // Each event brings a descriptor, and the process has a limited number.
    constexpr size_t mostEvents = 32;
    alignas(fanotify_event_metadata) std::array<char, mostEvents * sizeof(fanotify_event_metadata)> buffer;
    const ssize_t size = group_.duplicate.Read(buffer.data(), buffer.size());
    if (size < 0) {
        if (errno == EAGAIN) {
            return;
        }
        if (readFailures_.MayLog()) {
            LogError(
                "cannot read fanotify events, checking every marked file instead: %s (see the limit of open files)",
                std::strerror(errno));
        }
        // Pauses, because the cause, such as a lack of descriptors, may last. The event itself is lost.
        Clock::Poll({}, Clock::Now() + lookPause);
        ReportAllMarks();
        return;
    }
    auto left = static_cast<size_t>(size);
    const auto* event = reinterpret_cast<const fanotify_event_metadata*>(buffer.data());
    for (; FAN_EVENT_OK(event, left); event = FAN_EVENT_NEXT(event, left)) {
        const Descriptor file(event->fd);
        if (event->vers == FANOTIFY_METADATA_VERSION && IsRunning()) {
            Report(*event, file);
        }
    }
}

void FanotifyReader::Report(const fanotify_event_metadata& event, const Descriptor& file) {
    if ((event.mask & FAN_Q_OVERFLOW) != 0) {
        if (losses_.MayLog()) {
            LogWarning("the kernel dropped fanotify events, its queue was full; checking every marked file instead");
        }
        ReportAllMarks();
        return;
    }
    // A callback examines a file by opening and closing it: reporting its own closes would never end.
    if (event.pid == getpid() || !file.IsOpen()) {
        return;
    }
    struct stat attributes {};
    std::string path;
    if (fstat(file.Get(), &attributes) == 0) {
        path = group_.marks.PathOf(attributes.st_dev, attributes.st_ino);
    }
    if (path.empty()) {
        path = TavUtils::FileAttribute::GetRealLink("/proc/self/fd/" + std::to_string(file.Get()));
    }
    Call(event.pid, path, static_cast<unsigned int>(event.mask));
}

void FanotifyReader::ReportAllMarks() {
    for (const FanotifyMarks::Mark& mark : group_.marks.All()) {
        if (!IsRunning()) {
            return;
        }
        Call(0, mark.path, mark.mask);
    }
}

void FanotifyReader::Call(long number, const std::string& path, unsigned int mask) {
    if (callback_ == nullptr) {
        return;
    }
    // An exception of the module must not end the agent.
    try {
        callback_(number, path.c_str(), mask);
    } catch (const std::exception& error) {
        if (callFailures_.MayLog()) {
            LogError("a callback for fanotify failed: %s; continuing with the next event", error.what());
        }
    } catch (...) {
        if (callFailures_.MayLog()) {
            LogError("a callback for fanotify failed with an unknown exception; continuing with the next event");
        }
    }
}

}  // namespace Host
