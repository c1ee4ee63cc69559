// One pass of the module over this host, with its decisions and events.
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
    // An alarm about the process was suppressed as a repetition: an earlier pass has raised it, or this pass has raised
    // it for another process on the same connection. A running agent raises only the first, once per hour.
    bool repeated = false;

    bool Reports(int pid) const { return repeated || EventAbout(pid) != nullptr; }

    // "with the connection ADDRESS:PORT - ADDRESS:PORT"; empty without an event about the process.
    std::string ConnectionText(int pid) const;

private:
    const OwnEvent* EventAbout(int pid) const;
};

// Called with each decision that concerns the process, and the reasons that follow from it.
using DecisionReader = std::function<void(const Decision& decision, const std::vector<Reason>& reasons)>;

// Runs work, which calls the module, once. A decision concerns the process if it has its pid, no pid (0), or the
// negative pid of a stand-in for one of its commands. Throws as EventsOf does.
PassResult RunPass(const Scene& scene, const std::function<void()>& work, const DecisionReader& reader);

}  // namespace Host
