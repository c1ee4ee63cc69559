// Collects the findings and tracks which expectations are met.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "demo/finding.h"
#include "demo/scenarios.h"

namespace Host {

// The processes and files of a staged scenario.
struct StagedParts {
    int stagehand = 0;            // the ancestor of all other processes of the scenario
    std::set<int> shells;         // processes that findings must name
    std::set<int> programs;       // processes whose commands findings must name
    std::set<std::string> files;  // shells and copies of shells
    double seconds = 0;           // when it was staged, since the demonstration began
};

enum class Verdict { found, missed, silent, notSilent, skipped, notStaged };

// For example "not silent".
const char* VerdictName(Verdict verdict);

struct ScenarioResult {
    const Scenario* scenario = nullptr;
    StagedParts parts;
    std::string skipped;                       // why this host does not allow it; any bytes
    std::string failure;                       // why staging failed; any bytes
    std::vector<std::optional<double>> after;  // per expectation: seconds from staging to its finding
    std::vector<Finding> findings;             // all findings about it

    Verdict Judged() const;
    bool Passed() const;
};

// For one thread.
class Scoreboard {
public:
    explicit Scoreboard(const std::vector<const Scenario*>& scenarios);

    void Staged(const std::string& name, const StagedParts& parts);
    void Skipped(const std::string& name, const std::string& reason);
    void NotStaged(const std::string& name, const std::string& reason);

    // The scenario that the finding belongs to; null if there is none.
    const ScenarioResult* OwnerOf(const Finding& finding) const;

    // Adds a finding to its scenario and returns that, or adds it to the others and returns null. Corrects the
    // finding's detection if it belongs to the short-command watcher.
    const ScenarioResult* Add(Finding& finding);

    // True if all expectations are met.
    bool AllFound() const;

    // True if there are scenarios that must not be reported.
    bool AnyHarmless() const;

    bool Passed() const;

    const std::vector<ScenarioResult>& Results() const { return results_; }
    const std::vector<Finding>& Others() const { return others_; }

private:
    ScenarioResult* ResultOf(const std::string& name);

    std::vector<ScenarioResult> results_;
    std::vector<Finding> others_;
};

}  // namespace Host
