// From the module's decisions to reasons.
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

// Takes the decisions of one pass in their order. Some tests are parts of a later one: whether a socket counts, whether
// a process feeds a pipe. Where such a part speaks against an alarm, the later test gives it as its reason.
class ReasonWriter {
public:
    // scene has to outlive the writer.
    explicit ReasonWriter(const Scene& scene) : scene_(scene) {}

    // What the decision adds to an explanation: mostly one reason, or none.
    std::vector<Reason> Take(const Decision& decision);

private:
    void TakeSocket(const Decision& decision, const std::string& text, bool speaksFor);
    std::vector<Reason> TakeWriter(const Decision& decision, const std::string& text, bool speaksFor);
    std::vector<Reason> Finish(Reason reason);
    std::string Why(const Decision& decision, Role role) const;

    const Scene& scene_;
    std::map<unsigned long, std::string> socketReasons_;      // against a socket, by inode
    std::vector<std::pair<int, std::string>> writerReasons_;  // against a process, by pid
    std::string note_;                                        // on the socket that counts
};

}  // namespace Host
