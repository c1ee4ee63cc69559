// The module's repeating tasks on the agent's scheduler.
#pragma once

#include <cstdint>
#include <string>

#include "agent/task_manager.h"

// When a task runs: first after delayMs from now, then every periodMs. Both in milliseconds.
struct TaskTiming {
    TavUtils::TASKTYPE type;
    uint64_t delayMs;
    uint64_t periodMs;
};

// Registers entry under name and keeps the id in task. A task that the record already holds is ended first, so that a
// repeated start replaces it. False if the agent refuses the task. Called by the thread that starts the module.
bool StartTask(TavUtils::RepeatTask& task, const TaskTiming& timing, void* (*entry)(void*), const std::string& name);

// Ends the task that the record holds, if any, waiting for a run in progress. Called by the thread that stops the
// module.
void StopTask(TavUtils::RepeatTask& task);
