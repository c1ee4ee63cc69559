#include "demo/finding.h"

#include <nlohmann/json.hpp>

#include "module/published.h"

namespace Host {
namespace {

using Json = nlohmann::ordered_json;

std::string Text(const Json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : "";
}

int Number(const Json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_number_integer() ? member->get<int>() : 0;
}

std::string Endpoint(const Json& content, const char* address, const char* port) {
    return Text(content, address) + ":" + std::to_string(Number(content, port));
}

Finding ReverseShell(const Json& content) {
    Finding finding;
    finding.detection = content.contains("inode") ? Detection::instantScan : Detection::periodScan;
    finding.pid = Number(content, "pid");
    finding.ppid = Number(content, "ppid");
    finding.path = Text(content, "path");
    finding.detail = "process " + std::to_string(finding.pid) + " " + finding.path + ", connection " +
                     Endpoint(content, "localIp", "localPort") + " - " + Endpoint(content, "remoteIp", "remotePort");
    return finding;
}

std::string AttributeDetail(const Json& content) {
    const auto list = content.find("attribute");
    if (list == content.end() || !list->is_array() || list->empty()) {
        return "";
    }
    const Json& change = list->front();
    return ": " + Text(change, "type") + " " + Text(change, "from") + " -> " + Text(change, "to");
}

Finding AbnormalShell(const Json& content) {
    Finding finding;
    finding.detection = Detection::shellFileProtection;
    finding.operation = Text(content, "operationType");
    finding.path = Text(content, "path");
    finding.relatedPath = Text(content, "relatedPath");
    finding.detail = finding.operation + " of " + finding.path +
                     (finding.relatedPath.empty() ? "" : " -> " + finding.relatedPath) + AttributeDetail(content);
    return finding;
}

}  // namespace

std::optional<Finding> ParseFinding(std::string_view event) {
    const Json parsed = Json::parse(event, nullptr, false);
    if (!parsed.is_object() || !parsed.contains("eventContent") || !parsed["eventContent"].is_object()) {
        return std::nullopt;
    }
    const Json& content = parsed["eventContent"];
    const std::string type = Text(parsed, "eventType");
    if (type != Published::reverseShellEvent && type != Published::shellFileEvent) {
        return std::nullopt;
    }
    Finding finding = type == Published::reverseShellEvent ? ReverseShell(content) : AbnormalShell(content);
    finding.event = event;
    return finding;
}

}  // namespace Host
