// The text of /proc/<pid>/stat, and the start time in ticks from it.

#include <climits>
#include <optional>
#include <sstream>
#include <string>

#include "inspect/detect_shell_utils.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

constexpr int startField = 22;
constexpr long ticksPerSecond = 100;

std::string FieldOf(const std::string& stat, int number) {
    std::istringstream fields(stat);
    std::string field;
    for (int i = 0; i < number; ++i) {
        field.clear();
        if (!(fields >> field)) {
            return "";
        }
    }
    return field;
}

// The value of the digits, at most ULLONG_MAX.
unsigned long long NumberOf(const std::string& digits) {
    unsigned long long number = 0;
    for (const char c : digits) {
        const unsigned long long digit = static_cast<unsigned long long>(c - '0');
        if (number > (ULLONG_MAX - digit) / 10) {
            return ULLONG_MAX;
        }
        number = number * 10 + digit;
    }
    return number;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string stat = TerminatedTextOf(data, size);
    const unsigned long long ticks = DetectShellUtil::StartJiffOfStat(stat.c_str());
    const std::string field = FieldOf(stat, startField);
    if (field.empty()) {
        Require(ticks == 0, "too few fields give 0");
    } else if (field.find_first_not_of("0123456789") == std::string::npos) {
        Require(ticks == NumberOf(field), "the 22nd field is the start");
    }
    const unsigned long long milliseconds = DetectShellUtil::TicksToMilliseconds(ticks, ticksPerSecond);
    Require(milliseconds == 0 || milliseconds / 1000 == ticks / ticksPerSecond, "the milliseconds match the ticks");
    return 0;
}
