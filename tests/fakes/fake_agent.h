// The agent as the tests of the module script it: they set what each service answers and read back what was called.
#pragma once

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
    std::optional<std::string> code;  // nothing for a null code

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
    // What the services answer.
    std::map<std::string, std::string> environment;
    std::set<std::string> refusedTasks;  // by name
    std::vector<TavUtils::NetStat::NETSTAT> tcp;
    std::vector<TavUtils::NetStat::NETSTAT> udp;
    std::vector<TavUtils::NetStat::NETSTAT> tcp6;
    std::set<std::string> refusedWatches;  // by path
    bool refuseFanotify = false;
    bool refuseThreads = false;
    std::string utc = "2024-02-03T04:05:06.789Z";

    // What was called.
    std::vector<LogLine> log;
    std::vector<StatusReport> statuses;
    std::vector<Task> tasks;                              // registered at present
    std::vector<ProcessCallback> callbacks;               // registered at present
    std::vector<TavUtils::Monitor::FileWatchRule> rules;  // watched at present
    std::vector<FanotifyMark> fanotifyMarks;
    void (*fanotifyCallback)(long, const char*, unsigned int) = nullptr;
    std::vector<Thread> threads;  // started and not awaited
    std::vector<std::string> events;
    std::vector<std::string> journal;  // calls in the order in which they came, log lines included
    unsigned int lastTaskId = 0;
    unsigned long lastThread = 0;
    int lastWatch = 0;

    // Log texts of one level, in order.
    std::vector<std::string> LogTexts(LogLevel level) const;

    // The registered task of that name; null if there is none.
    const Task* FindTask(const std::string& name) const;
};

Agent& TheAgent();

// Puts the agent back to how it is at the start of a test, its settings map included.
void ResetAgent();

}  // namespace Fake
