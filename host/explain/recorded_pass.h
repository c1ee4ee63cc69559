// One pass of the module over this host, with its decisions and its events.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/explain/decision_recorder.h"
#include "host/explain/judgement.h"
#include "host/explain/own_events.h"
#include "host/explain/scene.h"

namespace Host {

struct PassResult {
    std::vector<OwnEvent> events;
    // An alarm about the process was held back as one that an earlier pass has raised, or this one about another
    // process on the same connection. A running agent raises it once an hour, whichever comes first.
    bool repeated = false;

    bool Reports(int pid) const { return repeated || EventAbout(pid) != nullptr; }

    // Such as "with the connection ADDRESS:PORT - ADDRESS:PORT"; empty without an event about the process.
    std::string ConnectionText(int pid) const;

private:
    const OwnEvent* EventAbout(int pid) const;
};

// Takes a decision that concerns the process, and the reasons that follow from it.
using DecisionReader = std::function<void(const Decision& decision, const std::vector<Reason>& reasons)>;

// Runs work, which calls the module, once. A decision concerns the process if it is of its pid, or of none (0), or of a
// command that stands in for one of its own (below 0). Throws as EventsOf does.
PassResult RunPass(const Scene& scene, const std::function<void()>& work, const DecisionReader& reader);

}  // namespace Host
