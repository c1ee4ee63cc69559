#include "agent/task_manager.h"

#include "host/tasks/task_control.h"
#include "host/tasks/task_scheduler.h"

namespace TavUtils {

TaskManager& TaskManager::GetInstance() {
    static TaskManager manager;
    return manager;
}

unsigned int TaskManager::RegisterTask(TASKTYPE type, TASK_CONDITION condition, void* (*entry)(void*), void* arg,
                                       const std::string& name) {
    return Host::TaskScheduler::Instance().Register(type, condition, entry, arg, name);
}

void TaskManager::PauseAndWaitForEnd(unsigned int id) {
    Host::TaskScheduler::Instance().Pause(id);
}

void TaskManager::UnregisterTask(unsigned int id) {
    Host::TaskScheduler::Instance().Unregister(id);
}

}  // namespace TavUtils

namespace Host {

bool RunTaskNow(const std::string& name) {
    return TaskScheduler::Instance().RunNow(name);
}

}  // namespace Host
