#include "frame/repeat_task.h"

#include <chrono>

#include "agent/bounds_checked.h"

bool StartTask(TavUtils::RepeatTask& task, const TaskTiming& timing, void* (*entry)(void*), const std::string& name) {
    StopTask(task);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    TavUtils::TASK_CONDITION condition;
    memset_s(&condition, sizeof(condition), 0, sizeof(condition));
    condition.firstRunMs = static_cast<uint64_t>(nowMs) + timing.delayMs;
    condition.periodMs = timing.periodMs;
    condition.enabled = 1;
    task.id = TavUtils::TaskManager::GetInstance().RegisterTask(timing.type, condition, entry, nullptr, name);
    return task.id != 0;
}

void StopTask(TavUtils::RepeatTask& task) {
    if (task.id == 0) {
        return;
    }
    TavUtils::TaskManager::GetInstance().PauseAndWaitForEnd(task.id);
    TavUtils::TaskManager::GetInstance().UnregisterTask(task.id);
    task.id = 0;
}
