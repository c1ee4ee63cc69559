// Which of the expectations have been met.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "demo/finding.h"
#include "demo/scenarios.h"

namespace Host {

// What a wiring is made of, once it is staged.
struct StagedParts {
    int stagehand = 0;            // the process that all others of the wiring descend from
    std::set<int> shells;         // which findings have to name
    std::set<int> programs;       // whose commands findings have to name
    std::set<std::string> files;  // shells and copies of them
    double seconds = 0;           // when it was staged, since the demonstration began
};

enum class Verdict { found, missed, silent, notSilent, skipped, notStaged };

// Such as "not silent".
const char* VerdictName(Verdict verdict);

struct WiringResult {
    const WiringPlan* plan = nullptr;
    StagedParts parts;
    std::string skipped;                       // why it cannot be staged on this host; any bytes
    std::string failure;                       // what went wrong in staging it; any bytes
    std::vector<std::optional<double>> after;  // seconds from the staging on, for each expectation that is met
    std::vector<Finding> findings;             // all that are about it

    Verdict Judged() const;
    bool Passed() const;
};

// For one thread.
class Scoreboard {
public:
    explicit Scoreboard(const std::vector<const WiringPlan*>& plans);

    void Staged(const std::string& name, const StagedParts& parts);
    void Skipped(const std::string& name, const std::string& reason);
    void NotStaged(const std::string& name, const std::string& reason);

    // The wiring that the finding is about; null if it is about none.
    const WiringResult* OwnerOf(const Finding& finding) const;

    // Takes a finding to the wiring that it is about, which is returned, or to the others: null. May put the finding's
    // detection right.
    const WiringResult* Add(Finding& finding);

    // Every wiring from which findings have to come has given them all.
    bool AllFound() const;

    // There are wirings that have to stay silent.
    bool AnyHarmless() const;

    bool Passed() const;

    const std::vector<WiringResult>& Results() const { return results_; }
    const std::vector<Finding>& Others() const { return others_; }

private:
    WiringResult* ResultOf(const std::string& name);

    std::vector<WiringResult> results_;
    std::vector<Finding> others_;
};

}  // namespace Host
