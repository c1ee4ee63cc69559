#include "demo/stage.h"

#include <cstdlib>
#include <exception>

#include "demo/attacker.h"
#include "demo/network.h"
#include "demo/stagehand.h"

namespace Host {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds stepPatience{5000};
constexpr milliseconds endPatience{5000};

std::vector<std::string> StagehandWords(const std::string& part, const std::string& directory) {
    return {"orlim-demo", stagehandCommand, part, directory};
}

// Reads one line of a stagehand. False if it was the last line.
bool TakeLine(const std::string& line, StagedScenario& staged) {
    const size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (word == "shell") {
        staged.parts.shells.insert(std::atoi(rest.c_str()));
    } else if (word == "program") {
        staged.parts.programs.insert(std::atoi(rest.c_str()));
    } else if (word == "file") {
        staged.parts.files.insert(rest);
    } else if (word == "skip") {
        staged.skipped = rest;
        return false;
    } else if (word == "error") {
        staged.failure = rest;
        return false;
    }
    return word != "done";
}

}  // namespace

Stage::~Stage() {
    Clear();
}

bool Stage::Join(std::string& error) {
    AdoptOrphans();
    attacker_ = std::make_unique<StageProcess>(StagehandWords(attackerName, directory_));
    if (!AwaitAttacker("ready", error) || !JoinNetworks(attacker_->Pid(), error) ||
        !BringUp(hostInterface, hostAddress, error)) {
        return false;
    }
    attacker_->Prompt();
    return AwaitAttacker("listening", error);
}

StagedScenario Stage::Put(const Scenario& scenario) {
    StagedScenario staged;
    staged.scenario = &scenario;
    try {
        StageProcess& stagehand = stagehands_.emplace_back(StagehandWords(scenario.name, directory_));
        staged.parts.stagehand = stagehand.Pid();
        std::string line;
        do {
            if (!stagehand.ReadLine(line, stepPatience)) {
                staged.failure = "its process does not respond";
                break;
            }
        } while (TakeLine(line, staged));
    } catch (const std::exception& error) {
        staged.failure = error.what();
    }
    return staged;
}

void Stage::Open() const {
    attacker_->Prompt();
}

bool Stage::Clear() {
    if (!cleared_) {
        cleared_ = EndAllChildren(endPatience);
    }
    return cleared_;
}

bool Stage::AwaitAttacker(const std::string& word, std::string& error) {
    std::string line;
    if (!attacker_->ReadLine(line, stepPatience)) {
        error = "the attacker's process does not respond";
        return false;
    }
    if (line != word) {
        error = "the attacker's host: " + line;
        return false;
    }
    return true;
}

}  // namespace Host
