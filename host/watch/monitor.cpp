#include "agent/monitor.h"

#include "host/watch/monitor_service.h"

namespace TavUtils::Monitor {

FileWatchRule::~FileWatchRule() = default;

int AddMonitor(const FileWatchRule& rule, MonitorType type) {
    return type == MONITOR_FILE ? Host::MonitorService::Instance().Add(rule) : 0;
}

int RemoveMonitor(const FileWatchRule& rule, MonitorType type) {
    return type == MONITOR_FILE ? Host::MonitorService::Instance().Remove(rule.handle) : -1;
}

}  // namespace TavUtils::Monitor
