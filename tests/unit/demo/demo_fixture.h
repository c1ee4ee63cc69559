// Scenarios and findings for tests.
#pragma once

#include "demo/scoreboard.h"

namespace Host {

inline const Scenario shellScenario{"shell", "a shell", {{Detection::instantScan, ""}}, {}, false};
inline const Scenario programScenario{"program", "a program", {{Detection::shortCommandWatcher, ""}}, {}, false};
inline const Scenario copyScenario{
    "copy", "a copy", {{Detection::shellFileProtection, "copy"}, {Detection::instantScan, ""}}, {}, false};
inline const Scenario quietScenario{"quiet", "nothing", {}, {}, false};

inline StagedParts Parts(int stagehand, int shell, double seconds) {
    StagedParts parts;
    parts.stagehand = stagehand;
    parts.shells = {shell};
    parts.seconds = seconds;
    return parts;
}

inline Finding ReverseShellOf(int pid, int ppid, Detection detection, double seconds) {
    Finding finding;
    finding.detection = detection;
    finding.pid = pid;
    finding.ppid = ppid;
    finding.lineage = {pid, ppid};
    finding.seconds = seconds;
    finding.event = R"({"eventType":"reverse-shell"})";
    return finding;
}

inline Finding ChangeOf(const std::string& path, const std::string& relatedPath, const std::string& operation) {
    Finding finding;
    finding.detection = Detection::shellFileProtection;
    finding.operation = operation;
    finding.path = path;
    finding.relatedPath = relatedPath;
    finding.seconds = 1;
    finding.event = R"({"eventType":"abnormal-shell"})";
    return finding;
}

}  // namespace Host
