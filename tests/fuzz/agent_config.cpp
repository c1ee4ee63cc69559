// The agent's configuration file.

#include "host/config/agent_config.h"

#include <algorithm>
#include <optional>
#include <string>

#include "agent/json.h"
#include "tests/fakes/fake_agent.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

using TavUtils::JsonAdaptor::JsonValue;

constexpr unsigned int mostEventsPerMinute = 1000000;
constexpr size_t mostSinks = 16;

bool IsOneLine(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

void CheckConfig(const Host::AgentConfig& config) {
    Require(!config.sinks.empty() && config.sinks.size() <= mostSinks, "the number of sinks is within its range");
    Require(config.perMinuteLimit <= mostEventsPerMinute, "the limit is within its range");
    JsonValue document(TavUtils::JsonAdaptor::JSON_OBJECT);
    Require(TavUtils::JsonAdaptor::JsonCharReader().Parse(config.moduleText, document),
            "the module's section is valid JSON");
    for (const std::string& warning : config.warnings) {
        Require(IsOneLine(warning), "a warning is one line");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fake::ResetAgent();
    std::string error;
    const std::optional<Host::AgentConfig> config = Host::ParseAgentConfig(TextOf(data, size), "f", error);
    Require(config.has_value() == error.empty(), "the result is a configuration or an error");
    if (config) {
        CheckConfig(*config);
    } else {
        Require(error.rfind("f:", 0) == 0, "an error starts with the file name");
        Require(IsOneLine(error), "an error is one line");
    }
    return 0;
}
