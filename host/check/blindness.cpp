#include "host/check/blindness.h"

#include <initializer_list>

#include "module/published.h"

namespace Host {
namespace {

constexpr unsigned int Bit(Facility facility) {
    return 1U << static_cast<unsigned int>(facility);
}

constexpr unsigned int All(std::initializer_list<Facility> facilities) {
    unsigned int bits = 0;
    for (const Facility facility : facilities) {
        bits |= Bit(facility);
    }
    return bits;
}

// The key in "module" of the configuration that turns a detection on.
enum class Function { reverseShell, abnormalShell };

struct Detection {
    const char* name;
    Function function;
    unsigned int needs;  // bits of facilities; the detection is blind if one of them is missing
};

constexpr unsigned int wiring =
    All({Facility::module, Facility::location, Facility::processes, Facility::descriptors, Facility::connectionTables});
constexpr unsigned int instant = wiring | Bit(Facility::processEvents);
constexpr unsigned int waiting = instant | Bit(Facility::kernelWaits);
constexpr unsigned int copies = All({Facility::module, Facility::processes, Facility::processEvents});
constexpr unsigned int changes = All({Facility::module, Facility::inotify});
constexpr unsigned int flags = All({Facility::module, Facility::fanotify, Facility::fileFlags});

constexpr Detection detections[] = {
    {Published::periodScan, Function::reverseShell, wiring},
    {Published::instantScanOnSocket, Function::reverseShell, waiting},
    {Published::instantScanByRelay, Function::reverseShell, waiting},
    {Published::instantScanByDescendant, Function::reverseShell, waiting},
    {Published::instantScanByRawSocket, Function::reverseShell, waiting},
    {Published::instantScanOnTerminal, Function::reverseShell, instant},
    {Published::shortCommandWatcher, Function::reverseShell, waiting},
    {Published::shellFileChange, Function::abnormalShell, changes},
    {Published::shellFileFlags, Function::abnormalShell, flags},
    {Published::shellFileCopy, Function::abnormalShell, copies},
};

bool IsOn(Function function, const AgentConfig& config) {
    return function == Function::reverseShell ? config.reverseShellText.has_value() : config.abnormalShell;
}

}  // namespace

std::vector<BlindDetection> BlindDetections(const std::vector<Lack>& lacks, const AgentConfig& config) {
    std::vector<BlindDetection> blind;
    for (const Detection& detection : detections) {
        std::string reason;
        for (const Lack& lack : lacks) {
            if ((detection.needs & Bit(lack.facility)) != 0) {
                reason += (reason.empty() ? "" : "; and ") + lack.reason;
            }
        }
        if (!reason.empty() && IsOn(detection.function, config)) {
            blind.push_back({detection.name, reason});
        }
    }
    return blind;
}

}  // namespace Host
