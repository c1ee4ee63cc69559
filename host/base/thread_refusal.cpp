#include "host/base/thread_refusal.h"

#include <map>
#include <mutex>

namespace Host {
namespace {

struct Handlers {
    std::mutex mutex;
    std::map<ThreadEntry, void (*)(void*)> byEntry;
};

// Never destroyed: threads may still be started while the process exits.
Handlers& TheHandlers() {
    static auto* const handlers = new Handlers;
    return *handlers;
}

}  // namespace

void SetRefusalHandler(ThreadEntry entry, void (*handler)(void* argument)) {
    Handlers& handlers = TheHandlers();
    const std::lock_guard lock(handlers.mutex);
    handlers.byEntry[entry] = handler;
}

void HandleRefusal(ThreadEntry entry, void* argument) {
    Handlers& handlers = TheHandlers();
    void (*handler)(void*) = nullptr;
    {
        const std::lock_guard lock(handlers.mutex);
        if (const auto found = handlers.byEntry.find(entry); found != handlers.byEntry.end()) {
            handler = found->second;
        }
    }
    if (handler != nullptr) {
        handler(argument);
    }
}

}  // namespace Host
