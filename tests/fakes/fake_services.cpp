#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "agent/env.h"
#include "agent/events.h"
#include "agent/status.h"
#include "agent/time_master.h"
#include "tests/fakes/fake_agent.h"

using Fake::TheAgent;

void LoggerWriteLog(const char* channel, LogLevel level, const char* source, unsigned int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    text.pop_back();
    {
        static std::mutex logLock;
        const std::lock_guard guard(logLock);
        TheAgent().log.push_back({channel, level, source, text});
    }
    TheAgent().Note("log " + text);
}

namespace TavUtils {

TaskManager& TaskManager::GetInstance() {
    static TaskManager manager;
    return manager;
}

unsigned int TaskManager::RegisterTask(TASKTYPE type, TASK_CONDITION condition, void* (*entry)(void*), void* arg,
                                       const std::string& name) {
    Fake::Agent& agent = TheAgent();
    if (agent.refusedTasks.contains(name)) {
        agent.Note("refuse " + name);
        return 0;
    }
    agent.Note("register " + name);
    agent.tasks.push_back({++agent.lastTaskId, name, type, condition, entry, arg});
    return agent.lastTaskId;
}

static std::string TaskName(unsigned int id) {
    for (const Fake::Task& task : TheAgent().tasks) {
        if (task.id == id) {
            return task.name;
        }
    }
    return "unknown task";
}

void TaskManager::PauseAndWaitForEnd(unsigned int id) {
    TheAgent().Note("pause " + TaskName(id));
}

void TaskManager::UnregisterTask(unsigned int id) {
    TheAgent().Note("unregister " + TaskName(id));
    std::erase_if(TheAgent().tasks, [id](const Fake::Task& task) { return task.id == id; });
}

ProcessMonitor& ProcessMonitor::GetInstance() {
    static ProcessMonitor monitor;
    return monitor;
}

bool ProcessMonitor::AddProcessEventCallback(void (*callback)(proc_event*)) {
    TheAgent().Note("add callback");
    TheAgent().callbacks.push_back(callback);
    return true;
}

void ProcessMonitor::RemoveProcessEventCallback(void (*callback)(proc_event*)) {
    TheAgent().Note("remove callback");
    std::erase(TheAgent().callbacks, callback);
}

bool NetStat::ReadTcp(std::vector<NETSTAT>& records, const bool*) {
    TheAgent().Note("read tcp");
    records.insert(records.end(), TheAgent().tcp.begin(), TheAgent().tcp.end());
    return true;
}

bool NetStat::ReadUdp(std::vector<NETSTAT>& records, const bool*) {
    TheAgent().Note("read udp");
    records.insert(records.end(), TheAgent().udp.begin(), TheAgent().udp.end());
    return true;
}

bool NetStat::ReadTcp6(std::vector<NETSTAT>& records, const bool*) {
    TheAgent().Note("read tcp6");
    records.insert(records.end(), TheAgent().tcp6.begin(), TheAgent().tcp6.end());
    return true;
}

const char* Env::GetEnv(const char* name) {
    const auto variable = TheAgent().environment.find(name);
    return variable == TheAgent().environment.end() ? nullptr : variable->second.c_str();
}

void TimeMaster::GetCurrentUTC(std::string& text) {
    text = TheAgent().utc;
}

}  // namespace TavUtils

EventConsumer& EventConsumer::Instance() {
    static EventConsumer consumer;
    return consumer;
}

void EventConsumer::PushMinuteLimitEvent(const std::string& json) {
    TheAgent().Note("event");
    TheAgent().events.push_back(json);
}

void Plugs::StatusCollect::ReportDetectStatus(const std::string& name, bool running, const char* code) {
    TheAgent().Note("status " + name + (running ? " on" : " off"));
    TheAgent().statuses.push_back({name, running, code == nullptr ? std::nullopt : std::optional<std::string>(code)});
}
