#include "host/explain/wiring_label.h"

#include "host/base/printable.h"

namespace Host {
namespace {

constexpr size_t longestName = 40;
constexpr size_t longestCommand = 90;
constexpr size_t longestLink = 120;

std::string Printable(const std::string& text, size_t limit) {
    std::string printable;
    if (!AppendPrintable(printable, text, limit)) {
        printable += "...";
    }
    return printable;
}

}  // namespace

std::string ProcessLabel(const WiredProcess& process) {
    return Printable(process.name, longestName) + " (" + std::to_string(process.pid) + ")";
}

std::string CommandLabel(const WiredProcess& process) {
    return Printable(process.cmdline, longestCommand);
}

std::string NumbersLabel(const std::vector<int>& numbers) {
    std::string label;
    for (const int number : numbers) {
        label += (label.empty() ? "" : ",") + std::to_string(number);
    }
    return label;
}

std::string ObjectLabel(const Wire& wire) {
    std::string label = Printable(wire.link, longestLink);
    if (wire.kind == DescriptorKind::terminalMultiplexer && wire.terminal) {
        label += "  of /dev/pts/" + std::to_string(*wire.terminal);
    }
    if (wire.connection) {
        label += "  " + wire.connection->protocol + " " + wire.connection->local + " - " + wire.connection->remote;
        label += wire.connection->foreign ? "  FOREIGN" : "";
    }
    return label;
}

}  // namespace Host
