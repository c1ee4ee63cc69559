#include "host/explain/wiring_text.h"

#include "host/explain/wiring_label.h"

namespace Host {
namespace {

void AppendProcess(const WiredProcess& process, const std::string& indent, std::string& text);

// The branch drawn before an entry, and the indent of the lines below it.
struct Branch {
    std::string head;
    std::string below;
};

Branch BranchOf(const std::string& indent, bool last) {
    return {indent + (last ? "└─ " : "├─ "), indent + (last ? "   " : "│  ")};
}

void AppendSharers(const Wire& wire, const std::string& indent, std::string& text) {
    for (size_t i = 0; i < wire.sharers.size(); ++i) {
        const WiredProcess& sharer = wire.sharers[i];
        const Branch branch = BranchOf(indent, i + 1 == wire.sharers.size() && wire.untold == 0);
        text += branch.head + (sharer.otherEnd ? "other end: " : "also ") + NumbersLabel(sharer.numbers) + " of " +
                ProcessLabel(sharer);
        text += sharer.toldAbove ? ", see above\n" : "  " + CommandLabel(sharer) + "\n";
        AppendProcess(sharer, branch.below, text);
    }
    if (wire.untold != 0) {
        text += BranchOf(indent, true).head + "and " + std::to_string(wire.untold) + " more\n";
    }
}

// Adds the lines below a process.
void AppendProcess(const WiredProcess& process, const std::string& indent, std::string& text) {
    for (size_t i = 0; i < process.wires.size(); ++i) {
        const Wire& wire = process.wires[i];
        const Branch branch = BranchOf(indent, i + 1 == process.wires.size());
        text += branch.head + NumbersLabel(wire.numbers) + "  " + ObjectLabel(wire) +
                (wire.toldAt == 0 ? "" : ", shared, see process " + std::to_string(wire.toldAt)) + "\n";
        AppendSharers(wire, branch.below, text);
    }
}

}  // namespace

std::string WiringText(const WiredProcess& process) {
    std::string text = ProcessLabel(process) + "  " + CommandLabel(process) + "\n";
    AppendProcess(process, "", text);
    return text;
}

}  // namespace Host
