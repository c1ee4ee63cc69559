// A fake agent for the tests of the module. Tests set the answer of each service and read back the calls.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/logger.h"
#include "agent/monitor.h"
#include "agent/net_stat.h"
#include "agent/process_monitor.h"
#include "agent/task_manager.h"

namespace Fake {

struct LogLine {
    std::string channel;
    LogLevel level;
    std::string source;
    std::string text;
};

struct StatusReport {
    std::string name;
    bool running;
    std::optional<std::string> code;  // nullopt for a null code

    bool operator==(const StatusReport&) const = default;
};

struct Task {
    unsigned int id;
    std::string name;
    TavUtils::TASKTYPE type;
    TavUtils::TASK_CONDITION condition;
    void* (*entry)(void*);
    void* arg;
};

struct Thread {
    unsigned long handle;
    std::string name;
    void* (*entry)(void*);  // never run
    void* argument;
    unsigned int stackBytes;
};

struct FanotifyMark {
    std::string path;
    unsigned int mask;

    bool operator==(const FanotifyMark&) const = default;
};

using ProcessCallback = void (*)(proc_event*);

struct Agent {
    // Answers of the services.
    std::map<std::string, std::string> environment;
    std::set<std::string> refusedTasks;  // by name
    std::vector<TavUtils::NetStat::NETSTAT> tcp;
    std::vector<TavUtils::NetStat::NETSTAT> udp;
    std::vector<TavUtils::NetStat::NETSTAT> tcp6;
    std::set<std::string> refusedWatches;  // by path
    bool refuseFanotify = false;
    bool refuseThreads = false;
    int descriptorLeftByLoop = -1;  // in the record of a fanotify group, once its loop has ended
    std::string utc = "2024-02-03T04:05:06.789Z";

    // Called with each entry of the journal, on the calling thread and before the call returns.
    std::function<void(const std::string& call)> atEachCall;

    // Calls.
    std::vector<LogLine> log;
    std::vector<StatusReport> statuses;
    std::vector<Task> tasks;                              // currently registered
    std::vector<ProcessCallback> callbacks;               // currently registered
    std::vector<TavUtils::Monitor::FileWatchRule> rules;  // currently watched
    std::vector<FanotifyMark> fanotifyMarks;
    int fanotifyDescriptor = -1;  // of the group opened last
    void (*fanotifyCallback)(long, const char*, unsigned int) = nullptr;
    std::vector<Thread> threads;  // started and not awaited
    std::vector<std::string> events;
    std::vector<std::string> journal;  // all calls in order, including log lines
    unsigned int lastTaskId = 0;
    unsigned long lastThread = 0;
    int lastWatch = 0;

    // Appends to the journal. Any thread.
    void Note(const std::string& call);

    // Log texts of one level, in order.
    std::vector<std::string> LogTexts(LogLevel level) const;

    // Null if no task of that name is registered.
    const Task* FindTask(const std::string& name) const;
};

Agent& TheAgent();

// Resets the fake agent and its settings map to their initial state.
void ResetAgent();

}  // namespace Fake
