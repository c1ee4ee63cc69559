#include "host/explain/recorded_pass.h"

#include <algorithm>

#include "host/explain/reason_writer.h"

namespace Host {

const OwnEvent* PassResult::EventAbout(int pid) const {
    const auto own =
        std::find_if(events.begin(), events.end(), [pid](const OwnEvent& event) { return event.pid == pid; });
    return own == events.end() ? nullptr : &*own;
}

std::string PassResult::ConnectionText(int pid) const {
    const OwnEvent* const event = EventAbout(pid);
    return event == nullptr ? "" : "with the connection " + event->connection;
}

PassResult RunPass(const Scene& scene, const std::function<void()>& work, const DecisionReader& reader) {
    PassResult result;
    ReasonWriter writer(scene);
    const auto take = [&](const Decision& decision) {
        // Decisions about other processes too: they also complete the parts recorded before them.
        const std::vector<Reason> reasons = writer.Take(decision);
        if (decision.pid == scene.pid || decision.pid <= 0) {
            result.repeated = result.repeated || (TextOf(decision.test).role == Role::repeat && decision.outcome);
            reader(decision, reasons);
        }
    };
    result.events = EventsOf([&] { RecordDecisions(work, take); });
    return result;
}

}  // namespace Host
