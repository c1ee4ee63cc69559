// Repeating tasks on the agent's scheduler.
#pragma once

#include <cstdint>
#include <string>

#include "agent/task_manager.h"

// When a task runs: delayMs after its registration, then every periodMs. In milliseconds.
struct TaskTiming {
    TavUtils::TASKTYPE type;
    uint64_t delayMs;
    uint64_t periodMs;
};

// Registers entry under name and stores the id in task. If task already has an id, that task is ended first, so a
// repeated start replaces it. Returns false if the agent refuses the task. Called by the thread that starts the module.
bool StartTask(TavUtils::RepeatTask& task, const TaskTiming& timing, void* (*entry)(void*), const std::string& name);

// Ends the task in the record, if any, and waits for a run in progress. Called by the thread that stops the module.
void StopTask(TavUtils::RepeatTask& task);
