#include "host/wiring/wiring.h"

#include <set>

namespace Host {
namespace {

constexpr int standardDescriptors = 6;
constexpr int furthest = 6;  // processes from the root
constexpr size_t mostSharers = 8;

struct Holder {
    const HostProcess* process;
    std::vector<int> numbers;
};

bool LeadsOn(const HeldDescriptor& descriptor) {
    return descriptor.kind == DescriptorKind::pipe || descriptor.kind == DescriptorKind::socket;
}

// Who holds which pipe or socket.
std::map<ObjectId, std::map<int, Holder>> IndexHolders(const std::map<int, HostProcess>& processes) {
    std::map<ObjectId, std::map<int, Holder>> holders;
    for (const auto& [pid, process] : processes) {
        for (const HeldDescriptor& descriptor : process.descriptors) {
            if (LeadsOn(descriptor)) {
                Holder& holder = holders[descriptor.object][pid];
                holder.process = &process;
                holder.numbers.push_back(descriptor.number);
            }
        }
    }
    return holders;
}

class Tracer {
public:
    Tracer(const std::map<int, HostProcess>& processes, const std::map<unsigned long, Connection>& connections)
        : holders_(IndexHolders(processes)), connections_(connections) {}

    WiredProcess Trace(const HostProcess& process, std::vector<int> numbers, int distance) {
        WiredProcess traced{.pid = process.pid,
                            .name = process.name,
                            .cmdline = process.cmdline,
                            .numbers = std::move(numbers),
                            .wires = {},
                            .toldAbove = !told_.insert(process.pid).second};
        if (!traced.toldAbove && distance < furthest) {
            traced.wires = WiresOf(process, distance);
        }
        return traced;
    }

private:
    // Of the root all of the first descriptors, of any other process what leads on.
    std::vector<Wire> WiresOf(const HostProcess& process, int distance) {
        std::vector<Wire> wires;
        for (const HeldDescriptor& descriptor : process.descriptors) {
            const bool wanted = distance == 0 ? descriptor.number < standardDescriptors : LeadsOn(descriptor);
            if (wanted && !JoinWire(descriptor, wires)) {
                wires.push_back({.numbers = {descriptor.number},
                                 .kind = descriptor.kind,
                                 .object = descriptor.object,
                                 .link = descriptor.link,
                                 .connection = ConnectionOf(descriptor),
                                 .sharers = {}});
            }
        }
        for (Wire& wire : wires) {
            AddSharers(process, wire, distance);
        }
        return wires;
    }

    static bool JoinWire(const HeldDescriptor& descriptor, std::vector<Wire>& wires) {
        for (Wire& wire : wires) {
            if (wire.object == descriptor.object) {
                wire.numbers.push_back(descriptor.number);
                return true;
            }
        }
        return false;
    }

    std::optional<Connection> ConnectionOf(const HeldDescriptor& descriptor) const {
        if (descriptor.kind != DescriptorKind::socket) {
            return std::nullopt;
        }
        const auto found = connections_.find(static_cast<unsigned long>(descriptor.object.inode));
        return found == connections_.end() ? std::nullopt : std::optional(found->second);
    }

    void AddSharers(const HostProcess& process, Wire& wire, int distance) {
        // What is the same for both of two processes need not be told twice.
        if (!toldObjects_.insert(wire.object).second) {
            return;
        }
        const auto holders = holders_.find(wire.object);
        if (holders == holders_.end()) {
            return;
        }
        for (const auto& [pid, holder] : holders->second) {
            if (pid == process.pid) {
                continue;
            }
            if (wire.sharers.size() == mostSharers) {
                ++wire.untold;
            } else {
                wire.sharers.push_back(Trace(*holder.process, holder.numbers, distance + 1));
            }
        }
    }

    std::map<ObjectId, std::map<int, Holder>> holders_;
    const std::map<unsigned long, Connection>& connections_;
    std::set<int> told_;
    std::set<ObjectId> toldObjects_;
};

}  // namespace

std::optional<WiredProcess> TraceWiring(int pid, const std::map<int, HostProcess>& processes,
                                        const std::map<unsigned long, Connection>& connections) {
    const auto root = processes.find(pid);
    if (root == processes.end()) {
        return std::nullopt;
    }
    return Tracer(processes, connections).Trace(root->second, {}, 0);
}

}  // namespace Host
