#include "host/explain/own_events.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "host/events/agent_library.h"
#include "module/published.h"

namespace Host {
namespace {

constexpr std::chrono::seconds patience{10};

std::string Endpoint(const nlohmann::json& content, const char* address, const char* port) {
    const std::string text = content.value(address, "");
    return (text.find(':') == std::string::npos ? text : "[" + text + "]") + ":" +
           std::to_string(content.value(port, 0));
}

OwnEvent Parse(const std::string& text) {
    const nlohmann::json event = nlohmann::json::parse(text);
    const nlohmann::json& content = event.at("eventContent");
    OwnEvent parsed{.type = event.at("eventType"), .pid = 0, .connection = {}, .path = content.value("path", "")};
    if (parsed.type == Published::reverseShellEvent) {
        parsed.pid = content.value("pid", 0);
        parsed.connection =
            Endpoint(content, "localIp", "localPort") + " - " + Endpoint(content, "remoteIp", "remotePort");
    }
    return parsed;
}

}  // namespace

std::vector<OwnEvent> EventsOf(const std::function<void()>& work) {
    const AgentLibrary& library = AgentLibrary::Get();
    library.setEventLimit(0);
    std::vector<std::string> texts;
    work();
    library.startEvents([&texts](std::string_view text) { texts.emplace_back(text); }, {});
    if (!library.stopEvents(patience)) {
        throw std::runtime_error("the event queue did not drain within 10 seconds");
    }
    std::vector<OwnEvent> events;
    events.reserve(texts.size());
    for (const std::string& text : texts) {
        events.push_back(Parse(text));
    }
    return events;
}

}  // namespace Host
