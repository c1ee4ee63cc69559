// Scheduling of periodic work on the agent's threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace TavUtils {

enum TASKTYPE : int {
    TASK_ONCE = 0,
    TASK_REPEAT = 1,
};

// When a task runs. The record crosses a binary boundary, so its layout is fixed. The caller clears it first.
struct TASK_CONDITION {
    uint64_t firstRunMs;   // first run, milliseconds since the Unix epoch
    uint64_t periodMs;     // period, milliseconds
    uint8_t reserved[32];  // zero
    uint8_t enabled;       // always 1
    uint8_t padding[7];    // zero
};
static_assert(sizeof(TASK_CONDITION) == 56);
static_assert(offsetof(TASK_CONDITION, firstRunMs) == 0);
static_assert(offsetof(TASK_CONDITION, periodMs) == 8);
static_assert(offsetof(TASK_CONDITION, reserved) == 16);
static_assert(offsetof(TASK_CONDITION, enabled) == 48);
static_assert(offsetof(TASK_CONDITION, padding) == 49);

// A caller's record of one task: the id from RegisterTask, 0 for none. Destroying the record does not end the task.
struct RepeatTask {
    unsigned int id = 0;

    ~RepeatTask() {}
};

// The process-wide scheduler. Any thread.
class TaskManager {
public:
    static TaskManager& GetInstance();

    // Runs entry(arg) on a thread of the manager: first at condition.firstRunMs, or immediately if that time has
    // passed, then once per period until the task is unregistered. entry's result is not used. A task never overlaps
    // itself: a tick during a run is skipped. Returns the task's id, or 0 if the task cannot be scheduled.
    unsigned int RegisterTask(TASKTYPE type, TASK_CONDITION condition, void* (*entry)(void*), void* arg,
                              const std::string& name);

    // Prevents further runs and waits for a run in progress, unless called by the task itself. An unknown id is
    // ignored.
    void PauseAndWaitForEnd(unsigned int id);

    // Removes the task. An unknown id is ignored.
    void UnregisterTask(unsigned int id);

    TaskManager(const TaskManager&) = delete;
    TaskManager& operator=(const TaskManager&) = delete;

private:
    TaskManager() = default;
    ~TaskManager() = default;
};

}  // namespace TavUtils
