#include "demo/scoreboard.h"

#include <algorithm>

namespace Host {
namespace {

bool IsOpen(const ScenarioResult& result) {
    return result.skipped.empty() && result.failure.empty() &&
           std::any_of(result.after.begin(), result.after.end(), [](const auto& each) { return !each; });
}

bool Names(const StagedParts& parts, const Finding& finding) {
    switch (finding.detection) {
        case Detection::shellFileProtection:
            return parts.files.contains(finding.path) || parts.files.contains(finding.relatedPath);
        case Detection::shortCommandWatcher:
            return parts.programs.contains(finding.ppid);
        case Detection::instantScan:
        case Detection::periodScan:
            break;
    }
    return parts.shells.contains(finding.pid);
}

void Meet(ScenarioResult& result, const Finding& finding) {
    if (!Names(result.parts, finding)) {
        return;
    }
    const std::vector<Expectation>& expected = result.scenario->expected;
    for (size_t i = 0; i < expected.size(); ++i) {
        if (!result.after[i] && expected[i].detection == finding.detection &&
            expected[i].operation == finding.operation) {
            result.after[i] = std::max(0.0, finding.seconds - result.parts.seconds);
            return;
        }
    }
}

}  // namespace

const char* VerdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::found:
            return "found";
        case Verdict::missed:
            return "missed";
        case Verdict::silent:
            return "silent";
        case Verdict::notSilent:
            return "not silent";
        case Verdict::skipped:
            return "skipped";
        case Verdict::notStaged:
            break;
    }
    return "not staged";
}

Verdict ScenarioResult::Judged() const {
    if (!failure.empty()) {
        return Verdict::notStaged;
    }
    if (!skipped.empty()) {
        return Verdict::skipped;
    }
    if (scenario->Harmless()) {
        return findings.empty() ? Verdict::silent : Verdict::notSilent;
    }
    return IsOpen(*this) ? Verdict::missed : Verdict::found;
}

bool ScenarioResult::Passed() const {
    const Verdict verdict = Judged();
    return verdict == Verdict::found || verdict == Verdict::silent || verdict == Verdict::skipped;
}

Scoreboard::Scoreboard(const std::vector<const Scenario*>& scenarios) {
    for (const Scenario* scenario : scenarios) {
        ScenarioResult result;
        result.scenario = scenario;
        result.after.resize(scenario->expected.size());
        results_.push_back(std::move(result));
    }
}

void Scoreboard::Staged(const std::string& name, const StagedParts& parts) {
    if (ScenarioResult* result = ResultOf(name)) {
        result->parts = parts;
    }
}

void Scoreboard::Skipped(const std::string& name, const std::string& reason) {
    if (ScenarioResult* result = ResultOf(name)) {
        result->skipped = reason;
    }
}

void Scoreboard::NotStaged(const std::string& name, const std::string& reason) {
    if (ScenarioResult* result = ResultOf(name)) {
        result->failure = reason;
    }
}

const ScenarioResult* Scoreboard::Add(Finding& finding) {
    const ScenarioResult* about = OwnerOf(finding);
    ScenarioResult* owner = about == nullptr ? nullptr : ResultOf(about->scenario->name);
    if (owner == nullptr) {
        others_.push_back(finding);
        return nullptr;
    }
    if (finding.detection == Detection::instantScan && !owner->parts.shells.contains(finding.pid) &&
        owner->parts.programs.contains(finding.ppid)) {
        finding.detection = Detection::shortCommandWatcher;
    }
    owner->findings.push_back(finding);
    Meet(*owner, finding);
    return owner;
}

bool Scoreboard::AllFound() const {
    return std::none_of(results_.begin(), results_.end(), IsOpen);
}

bool Scoreboard::AnyHarmless() const {
    return std::any_of(results_.begin(), results_.end(), [](const auto& each) { return each.scenario->Harmless(); });
}

bool Scoreboard::Passed() const {
    return std::all_of(results_.begin(), results_.end(), [](const auto& each) { return each.Passed(); });
}

ScenarioResult* Scoreboard::ResultOf(const std::string& name) {
    const auto found =
        std::find_if(results_.begin(), results_.end(), [&](const auto& each) { return each.scenario->name == name; });
    return found == results_.end() ? nullptr : &*found;
}

const ScenarioResult* Scoreboard::OwnerOf(const Finding& finding) const {
    for (const ScenarioResult& result : results_) {
        const StagedParts& parts = result.parts;
        const bool inLine =
            std::find(finding.lineage.begin(), finding.lineage.end(), parts.stagehand) != finding.lineage.end();
        if ((parts.stagehand != 0 && inLine) || Names(parts, finding) || parts.programs.contains(finding.ppid)) {
            return &result;
        }
    }
    return nullptr;
}

}  // namespace Host
