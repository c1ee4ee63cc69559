// Turns the module's decisions into reasons.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/explain/decision_recorder.h"
#include "host/explain/judgement.h"
#include "host/explain/scene.h"
#include "host/explain/test_text.h"

namespace Host {

// Takes the decisions of one pass in order. Some tests are parts of a later one, such as whether a socket counts or
// whether a process feeds a pipe. If such a part speaks against an alarm, the later test gives it as its reason.
class ReasonWriter {
public:
    // scene must outlive the writer.
    explicit ReasonWriter(const Scene& scene) : scene_(scene) {}

    // The reasons that the decision adds to an explanation: usually one or none.
    std::vector<Reason> Take(const Decision& decision);

private:
    void TakeSocket(const Decision& decision, const std::string& text, bool speaksFor);
    std::vector<Reason> TakeWriter(const Decision& decision, const std::string& text, bool speaksFor);
    std::vector<Reason> Finish(Reason reason);
    std::string Why(const Decision& decision, Role role) const;

    const Scene& scene_;
    std::map<unsigned long, std::string> socketReasons_;      // why a socket does not count, by inode
    std::vector<std::pair<int, std::string>> writerReasons_;  // why a process does not feed the pipe, by pid
    std::string note_;                                        // about the socket that counts
};

}  // namespace Host
