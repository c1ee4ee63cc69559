#include "module/process_intake.h"

void OnProcessEvent([[maybe_unused]] proc_event* event) {}

void* CheckNetlinkProcsTask([[maybe_unused]] void* arg) {
    return nullptr;
}
