#include "wiring/wiring.h"

#include <algorithm>
#include <set>

namespace Host {
namespace {

constexpr int standardDescriptors = 6;
constexpr int furthest = 6;  // in processes from the root
constexpr size_t mostSharers = 8;

struct Holder {
    const HostProcess* process;
    std::vector<int> numbers;
};

bool LeadsOn(const HeldDescriptor& descriptor) {
    return descriptor.kind == DescriptorKind::pipe || descriptor.kind == DescriptorKind::socket;
}

// The holders of each pipe and socket.
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

// Those of terminals without a number are under std::nullopt.
using TerminalHolders = std::map<std::optional<unsigned int>, std::map<int, Holder>>;

// The holders of this side of each pseudo-terminal, by its number.
TerminalHolders IndexTerminals(const std::map<int, HostProcess>& processes, DescriptorKind side) {
    TerminalHolders holders;
    for (const auto& [pid, process] : processes) {
        for (const HeldDescriptor& descriptor : process.descriptors) {
            if (descriptor.kind == side) {
                Holder& holder = holders[descriptor.terminal][pid];
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
        : holders_(IndexHolders(processes)),
          masters_(IndexTerminals(processes, DescriptorKind::terminalMultiplexer)),
          slaves_(IndexTerminals(processes, DescriptorKind::terminal)),
          connections_(connections) {}

    WiredProcess Trace(const HostProcess& process, std::vector<int> numbers, const ObjectId& reachedBy, int distance) {
        WiredProcess traced{.pid = process.pid,
                            .name = process.name,
                            .cmdline = process.cmdline,
                            .numbers = std::move(numbers),
                            .wires = {},
                            .toldAbove = !told_.insert(process.pid).second};
        if (!traced.toldAbove && distance < furthest) {
            traced.wires = WiresOf(process, reachedBy, distance);
        }
        return traced;
    }

private:
    // For the root all first descriptors, for other processes the pipes and sockets except the one that led to them.
    std::vector<Wire> WiresOf(const HostProcess& process, const ObjectId& reachedBy, int distance) {
        std::vector<Wire> wires;
        for (const HeldDescriptor& descriptor : process.descriptors) {
            const bool wanted = distance == 0 ? descriptor.number < standardDescriptors
                                              : LeadsOn(descriptor) && descriptor.object != reachedBy;
            if (wanted && !JoinWire(descriptor, wires)) {
                wires.push_back({.numbers = {descriptor.number},
                                 .kind = descriptor.kind,
                                 .object = descriptor.object,
                                 .link = descriptor.link,
                                 .terminal = descriptor.terminal,
                                 .connection = ConnectionOf(descriptor),
                                 .sharers = {},
                                 .toldAt = TellerOf(descriptor.object, process.pid)});
            }
        }
        // This process has claimed all its wires before the first one is followed. That keeps the tree flat.
        for (Wire& wire : wires) {
            AddSharers(process, wire, distance);
        }
        return wires;
    }

    // Lets this process list the object's sharers, unless another one does. Returns 0 or the pid of that one.
    int TellerOf(const ObjectId& object, int pid) {
        const int teller = tellers_.emplace(object, pid).first->second;
        return teller == pid ? 0 : teller;
    }

    static bool JoinWire(const HeldDescriptor& descriptor, std::vector<Wire>& wires) {
        for (Wire& wire : wires) {
            if (wire.object == descriptor.object && wire.terminal == descriptor.terminal) {
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
        AddOtherEnds(process, wire, distance);
        const auto holders = holders_.find(wire.object);
        if (holders == holders_.end() || wire.toldAt != 0) {
            return;
        }
        for (const Holder* holder : OthersByInterest(process.pid, holders->second)) {
            AddSharer(*holder, wire, false, distance);
        }
    }

    void AddSharer(const Holder& holder, Wire& wire, bool otherEnd, int distance) {
        if (wire.sharers.size() == mostSharers) {
            ++wire.untold;
            return;
        }
        wire.sharers.push_back(Trace(*holder.process, holder.numbers, wire.object, distance + 1));
        wire.sharers.back().otherEnd = otherEnd;
    }

    // Pseudo-terminals of different containers may have the same number. Unrelated holders may then be listed.
    void AddOtherEnds(const HostProcess& process, Wire& wire, int distance) {
        if (!wire.terminal) {
            return;
        }
        const TerminalHolders& otherSide = wire.kind == DescriptorKind::terminal ? masters_ : slaves_;
        const auto ends = otherSide.find(wire.terminal);
        if (ends == otherSide.end()) {
            return;
        }
        for (const Holder* holder : OthersByInterest(process.pid, ends->second)) {
            AddSharer(*holder, wire, true, distance);
        }
    }

    // Holders with a foreign connection first: the limit must not omit them.
    std::vector<const Holder*> OthersByInterest(int pid, const std::map<int, Holder>& holders) const {
        std::vector<const Holder*> others;
        for (const auto& [holderPid, holder] : holders) {
            if (holderPid != pid) {
                others.push_back(&holder);
            }
        }
        std::stable_partition(others.begin(), others.end(),
                              [this](const Holder* holder) { return HasForeignConnection(*holder->process); });
        return others;
    }

    bool HasForeignConnection(const HostProcess& process) const {
        return std::any_of(process.descriptors.begin(), process.descriptors.end(),
                           [this](const HeldDescriptor& descriptor) {
                               const std::optional<Connection> connection = ConnectionOf(descriptor);
                               return connection && connection->foreign;
                           });
    }

    std::map<ObjectId, std::map<int, Holder>> holders_;
    TerminalHolders masters_;
    TerminalHolders slaves_;
    const std::map<unsigned long, Connection>& connections_;
    std::set<int> told_;
    std::map<ObjectId, int> tellers_;  // pid of the process that lists the sharers, by object
};

}  // namespace

std::optional<WiredProcess> TraceWiring(int pid, const std::map<int, HostProcess>& processes,
                                        const std::map<unsigned long, Connection>& connections) {
    const auto root = processes.find(pid);
    if (root == processes.end()) {
        return std::nullopt;
    }
    return Tracer(processes, connections).Trace(root->second, {}, {}, 0);
}

}  // namespace Host
