#include "host/check/checks.h"

#include "host/base/log.h"
#include "host/check/confinement.h"
#include "host/check/kernel.h"
#include "host/check/kernel_stack.h"
#include "host/check/rights.h"
#include "host/check/setup.h"
#include "module/published.h"

namespace Host {

void CheckHost(const AgentConfig& config, CheckReport& report) {
    CheckLocation(report);
    CheckUser(report);
    CheckCapabilities(report);
    CheckNamespaces(report);
    CheckHidepid(report);
    CheckYama(report);
    CheckLockdown(report);
    CheckOthersDescriptors(report);
    CheckKernelWaits(report);
    CheckProcessEvents(report);
    CheckConnectionTables(report);
    CheckInotify(report);
    CheckFanotify(report);
    CheckShellFlags(CheckShellLists(config.ShellListFolder(), Published::hostShellList, report), report);
}

void LogBlindDetections(const AgentConfig& config) {
    CheckReport report;
    CheckHost(config, report);
    for (const BlindDetection& detection : BlindDetections(report.Lacking(), config)) {
        LogWarning("blind: %s: because %s", detection.name.c_str(), detection.reason.c_str());
    }
}

}  // namespace Host
