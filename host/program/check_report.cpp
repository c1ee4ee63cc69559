#include "host/program/check_report.h"

#include "host/services/log_text.h"

namespace Host {

void CheckReport::Ok(const std::string& what, const std::string& detail) {
    Add("OK      ", what, detail);
}

void CheckReport::Limited(const std::string& what, const std::string& cost) {
    Add("LIMITED ", what, cost);
}

void CheckReport::Missing(const std::string& what, const std::string& cost) {
    somethingMissing_ = true;
    Add("MISSING ", what, cost);
}

void CheckReport::Add(const char* word, const std::string& what, const std::string& detail) {
    constexpr size_t limit = 4096;
    text_ += word;
    if (!AppendPrintable(text_, what + ": " + detail, limit)) {
        text_ += "...";
    }
    text_ += '\n';
}

}  // namespace Host
