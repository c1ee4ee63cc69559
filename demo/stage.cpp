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

// One line of a stagehand. False if it was the last one.
bool TakeLine(const std::string& line, StagedWiring& wiring) {
    const size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (word == "shell") {
        wiring.parts.shells.insert(std::atoi(rest.c_str()));
    } else if (word == "program") {
        wiring.parts.programs.insert(std::atoi(rest.c_str()));
    } else if (word == "file") {
        wiring.parts.files.insert(rest);
    } else if (word == "skip") {
        wiring.skipped = rest;
        return false;
    } else if (word == "error") {
        wiring.failure = rest;
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

StagedWiring Stage::Put(const WiringPlan& plan) {
    StagedWiring wiring;
    wiring.plan = &plan;
    try {
        StageProcess& stagehand = stagehands_.emplace_back(StagehandWords(plan.name, directory_));
        wiring.parts.stagehand = stagehand.Pid();
        std::string line;
        do {
            if (!stagehand.ReadLine(line, stepPatience)) {
                wiring.failure = "its process says nothing more";
                break;
            }
        } while (TakeLine(line, wiring));
    } catch (const std::exception& error) {
        wiring.failure = error.what();
    }
    return wiring;
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
        error = "the attacker's host does not start";
        return false;
    }
    if (line != word) {
        error = "the attacker's host: " + line;
        return false;
    }
    return true;
}

}  // namespace Host
