// The lines that orlim-agent check prints, and what the host lacks for the detections.
#pragma once

#include <string>
#include <vector>

#include "host/check/blindness.h"

namespace Host {

// Each of the first three calls adds one line, whatever bytes its arguments bring. A remedy is a sentence that says
// what to do. For one thread.
class CheckReport {
public:
    void Ok(const std::string& what, const std::string& detail);
    // Detection works, but not all of it.
    void Limited(const std::string& what, const std::string& finding, const std::string& remedy);
    // Without it there is no detection worth the name.
    void Missing(const std::string& what, const std::string& finding, const std::string& remedy);

    // Notes what makes detections blind; reason as in Lack.
    void Lacks(Facility facility, const std::string& reason);
    bool IsLacking(Facility facility) const;

    bool SomethingMissing() const { return somethingMissing_; }
    const std::string& Text() const { return text_; }
    const std::vector<Lack>& Lacking() const { return lacks_; }

private:
    void Add(const char* word, const std::string& what, const std::string& detail);

    std::string text_;
    std::vector<Lack> lacks_;
    bool somethingMissing_ = false;
};

// One line for each detection that is on and blind, or one that none is.
std::string BlindLines(const CheckReport& report, const AgentConfig& config);

}  // namespace Host
