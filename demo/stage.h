// The stage: two hosts and the scenarios between them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "demo/child_process.h"
#include "demo/scoreboard.h"

namespace Host {

// The result of staging one scenario.
struct StagedScenario {
    const Scenario* scenario = nullptr;
    StagedParts parts;    // without seconds
    std::string skipped;  // as in ScenarioResult
    std::string failure;  // as in ScenarioResult
};

// For one thread, whose network namespace becomes the victim's host. The destructor ends all processes of the stage.
class Stage {
public:
    // The scenarios create their files in directory.
    explicit Stage(std::string directory) : directory_(std::move(directory)) {}
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // Starts the attacker's host and connects it to this one. False on failure; error then gives the reason.
    bool Join(std::string& error);

    // Stages a scenario except for the attacker's commands. After Join.
    StagedScenario Put(const Scenario& scenario);

    // Makes the attacker start to send its commands, within 1.5 seconds.
    void Open() const;

    // Ends all processes of the stage. False if one is left.
    bool Clear();

private:
    bool AwaitAttacker(const std::string& word, std::string& error);

    const std::string directory_;
    std::unique_ptr<StageProcess> attacker_;
    std::vector<StageProcess> stagehands_;
    bool cleared_ = false;
};

}  // namespace Host
