#include "host/check/report.h"

#include <algorithm>

#include "host/base/printable.h"

namespace Host {
namespace {

void AppendLine(std::string& text, const std::string& line) {
    constexpr size_t limit = 4096;
    if (!AppendPrintable(text, line, limit)) {
        text += "...";
    }
    text += '\n';
}

}  // namespace

void CheckReport::Ok(const std::string& what, const std::string& detail) {
    Add("OK      ", what, detail);
}

void CheckReport::Limited(const std::string& what, const std::string& finding, const std::string& remedy) {
    Add("LIMITED ", what, finding + ". " + remedy);
}

void CheckReport::Missing(const std::string& what, const std::string& finding, const std::string& remedy) {
    somethingMissing_ = true;
    Add("MISSING ", what, finding + ". " + remedy);
}

void CheckReport::Lacks(Facility facility, const std::string& reason) {
    lacks_.push_back({facility, reason});
}

bool CheckReport::IsLacking(Facility facility) const {
    return std::any_of(lacks_.begin(), lacks_.end(), [&](const Lack& lack) { return lack.facility == facility; });
}

void CheckReport::Add(const char* word, const std::string& what, const std::string& detail) {
    text_ += word;
    AppendLine(text_, what + ": " + detail);
}

std::string BlindLines(const CheckReport& report, const AgentConfig& config) {
    std::string text;
    for (const BlindDetection& detection : BlindDetections(report.Lacking(), config)) {
        AppendLine(text, "blind: " + detection.name + ": because " + detection.reason);
    }
    return text.empty() ? "no detection is blind\n" : text;
}

}  // namespace Host
