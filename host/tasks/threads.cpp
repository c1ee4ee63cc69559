#include "agent/threads.h"

#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>

#include "host/base/log.h"
#include "host/base/this_thread.h"
#include "host/base/thread_refusal.h"

namespace {

struct ThreadStart {
    void* (*entry)(void*);
    void* argument;
    std::string name;
    std::shared_ptr<const Host::WakeSignal> stop;
};

struct StartedThread {
    pthread_t thread;
    std::shared_ptr<const Host::WakeSignal> stop;
};

struct ThreadTable {
    std::mutex mutex;
    std::map<unsigned long, StartedThread> threads;
    unsigned long lastHandle = 0;
};

// Never destroyed: a module's threads may still run while the process exits.
ThreadTable& Table() {
    static auto* const table = new ThreadTable;
    return *table;
}

// Null if the process has no descriptor left: the thread then has no stop signal.
std::shared_ptr<const Host::WakeSignal> MakeStop() {
    try {
        return std::make_shared<Host::WakeSignal>();
    } catch (const std::system_error&) {
        return nullptr;
    }
}

void* RunThread(void* argument) {
    const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(argument));
    Host::SetThisThreadsStop(start->stop.get());
    Host::NameThisThread(start->name);
    // An exception of the module must not end the agent.
    try {
        return start->entry(start->argument);
    } catch (const std::exception& error) {
        LogError("thread %s failed: %s; it is not restarted until the module is", start->name.c_str(), error.what());
    } catch (...) {
        LogError("thread %s failed with an unknown exception; it is not restarted until the module is",
                 start->name.c_str());
    }
    return nullptr;
}

// The stack size for pthread_attr_setstacksize; 0 if the address space cannot hold it.
size_t StackSize(unsigned int stackBytes) {
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t rounded = (stackBytes + page - 1) / page * page;
    const uint64_t size = std::max<uint64_t>(rounded, static_cast<uint64_t>(PTHREAD_STACK_MIN));
    return size <= std::numeric_limits<size_t>::max() ? static_cast<size_t>(size) : 0;
}

int StartThread(pthread_t& thread, size_t stackSize, std::unique_ptr<ThreadStart> start) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    error = pthread_attr_setstacksize(&attributes, stackSize);
    if (error == 0) {
        error = pthread_create(&thread, &attributes, RunThread, start.get());
    }
    if (error == 0) {
        // The new thread owns the record.
        static_cast<void>(start.release());
    }
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace

unsigned long CreateHipsThreadEx(void* (*entry)(void*), void* argument, unsigned int stackBytes,
                                 const std::string& name) {
    if (entry == nullptr) {
        LogError("thread %s not started: it has no entry", name.c_str());
        return 0;
    }
    const std::shared_ptr<const Host::WakeSignal> stop = MakeStop();
    auto start = std::make_unique<ThreadStart>(ThreadStart{entry, argument, name, stop});
    ThreadTable& table = Table();
    // Held while the thread starts, so that the thread always finds itself in the table.
    const std::lock_guard lock(table.mutex);
    pthread_t thread{};
    const int error = StartThread(thread, StackSize(stackBytes), std::move(start));
    if (error != 0) {
        LogError("cannot start thread %s: %s (see TasksMax, ulimit -u)", name.c_str(), std::strerror(error));
        Host::HandleRefusal(entry, argument);
        return 0;
    }
    do {
        ++table.lastHandle;
    } while (table.lastHandle == 0 || table.threads.contains(table.lastHandle));
    table.threads.emplace(table.lastHandle, StartedThread{thread, stop});
    return table.lastHandle;
}

int StopHipsThreadEx(unsigned long handle) {
    ThreadTable& table = Table();
    StartedThread started{};
    {
        const std::lock_guard lock(table.mutex);
        const auto found = table.threads.find(handle);
        if (found == table.threads.end() || pthread_equal(found->second.thread, pthread_self()) != 0) {
            return -1;
        }
        started = found->second;
        table.threads.erase(found);
    }
    if (started.stop != nullptr) {
        started.stop->Raise();
    }
    const int error = pthread_join(started.thread, nullptr);
    if (error != 0) {
        LogError("cannot wait for the end of thread %lu: %s", handle, std::strerror(error));
        // Two threads wait for each other. The entry is kept so that the caller can try again.
        const std::lock_guard lock(table.mutex);
        table.threads.emplace(handle, started);
    }
    return error;
}
