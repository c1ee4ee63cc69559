#include <map>
#include <set>
#include <utility>

#include "host/explain/wiring_label.h"
#include "host/explain/wiring_text.h"

namespace Host {
namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
        }
        quoted += character;
    }
    return quoted + "\"";
}

class DotWriter {
public:
    std::string Write(const WiredProcess& process) {
        text_ = "graph wiring {\n  rankdir=LR;\n";
        AddProcess(process);
        return text_ + "}\n";
    }

private:
    static std::string ProcessNode(const WiredProcess& process) { return "p" + std::to_string(process.pid); }

    std::string ObjectNode(const Wire& wire) {
        return "o" + std::to_string(objects_.emplace(wire.object, objects_.size()).first->second);
    }

    void AddEdge(const WiredProcess& process, const Wire& wire, const std::vector<int>& numbers) {
        if (!joined_.emplace(process.pid, wire.object).second) {
            return;
        }
        text_ += "  " + ProcessNode(process) + " -- " + ObjectNode(wire) + " [label=" + Quoted(NumbersLabel(numbers)) +
                 "];\n";
    }

    void AddProcess(const WiredProcess& process) {
        if (process.toldAbove) {
            return;  // the graph already has its node
        }
        text_ += "  " + ProcessNode(process) + " [shape=box,label=" + Quoted(ProcessLabel(process)) + "];\n";
        for (const Wire& wire : process.wires) {
            const std::string node = ObjectNode(wire);
            if (drawn_.insert(wire.object).second) {
                const bool foreign = wire.connection && wire.connection->foreign;
                text_ += "  " + node + " [label=" + Quoted(ObjectLabel(wire)) + (foreign ? ",color=red" : "") + "];\n";
            }
            AddEdge(process, wire, wire.numbers);
            for (const WiredProcess& sharer : wire.sharers) {
                AddProcess(sharer);
                AddEdge(sharer, wire, sharer.numbers);
            }
            AddUntold(wire);
        }
    }

    void AddUntold(const Wire& wire) {
        if (wire.untold != 0) {
            const std::string node = "more" + std::to_string(objects_.at(wire.object));
            text_ += "  " + node + " [shape=plaintext,label=" + Quoted("and " + std::to_string(wire.untold) + " more") +
                     "];\n  " + node + " -- " + ObjectNode(wire) + ";\n";
        }
    }

    std::string text_;
    std::map<ObjectId, size_t> objects_;
    std::set<ObjectId> drawn_;
    std::set<std::pair<int, ObjectId>> joined_;
};

}  // namespace

std::string WiringDot(const WiredProcess& process) {
    return DotWriter().Write(process);
}

}  // namespace Host
