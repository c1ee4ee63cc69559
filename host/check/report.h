// The lines that orlim-agent check prints, and the facilities that this host lacks.
#pragma once

#include <string>
#include <vector>

#include "host/check/blindness.h"

namespace Host {

// Ok, Limited and Missing add one line each; their arguments may contain any bytes. A remedy is a sentence without its
// full stop. For one thread.
class CheckReport {
public:
    void Ok(const std::string& what, const std::string& detail);
    // Some detections do not work, or miss some processes or files.
    void Limited(const std::string& what, const std::string& finding, const std::string& remedy);
    // Detection as a whole does not work.
    void Missing(const std::string& what, const std::string& finding, const std::string& remedy);

    // Records a missing facility, which makes detections blind. reason as in Lack.
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

// One line for each detection that is on and blind, or a line that no detection is blind.
std::string BlindLines(const CheckReport& report, const AgentConfig& config);

}  // namespace Host
