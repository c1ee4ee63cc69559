// The stage: two hosts, and the wirings between them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "demo/child_process.h"
#include "demo/scoreboard.h"

namespace Host {

// What became of one wiring.
struct StagedWiring {
    const WiringPlan* plan = nullptr;
    StagedParts parts;    // without the time
    std::string skipped;  // a reason, or empty; any bytes
    std::string failure;  // likewise
};

// For one thread, whose network namespace is the victim's host. With the object go all processes of the stage.
class Stage {
public:
    // Files of the wirings are made in directory.
    explicit Stage(std::string directory) : directory_(std::move(directory)) {}
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // Starts the attacker's host and joins it to this one. False on failure; error then says why.
    bool Join(std::string& error);

    // Stages a wiring, up to what follows from the attacker's commands. After Join.
    StagedWiring Put(const WiringPlan& plan);

    // Lets the attacker send commands to the wirings, a second from now or less.
    void Open() const;

    // Ends everything. False if some process is left.
    bool Clear();

private:
    bool AwaitAttacker(const std::string& word, std::string& error);

    const std::string directory_;
    std::unique_ptr<StageProcess> attacker_;
    std::vector<StageProcess> stagehands_;
    bool cleared_ = false;
};

}  // namespace Host
