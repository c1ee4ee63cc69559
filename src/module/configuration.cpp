#include "module/configuration.h"

#include <set>
#include <string>
#include <utility>

#include "agent/env.h"
#include "agent/json.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/whitelist.h"

using TavUtils::JsonAdaptor::JsonCharReader;
using TavUtils::JsonAdaptor::JsonValue;

static constexpr char logSource[] = "detect_shell";

static constexpr int minDetectInterval = 30;
static constexpr int maxDetectInterval = 86400;

static std::set<std::string> ReadWhitelist(JsonValue& reverseShell) {
    std::set<std::string> whitelist;
    if (!reverseShell.IsMember("whitelist") || !reverseShell["whitelist"].IsArray()) {
        return whitelist;
    }
    for (const std::string& entry : reverseShell.GetJsonStringArray("whitelist")) {
        if (whitelist.size() >= maxWhitelistSize) {
            MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Whitelist size exceeds the threshold.");
            break;
        }
        whitelist.insert(entry);
    }
    return whitelist;
}

static void ReadReverseShell(JsonValue reverseShell) {
    if (reverseShell.IsMember("detectInterval") && reverseShell["detectInterval"].IsInt()) {
        const int seconds = reverseShell.AsInt("detectInterval");
        if (seconds >= minDetectInterval && seconds <= maxDetectInterval) {
            detectInterval = seconds;
        }
    }
    ReplaceWhitelist(ReadWhitelist(reverseShell));
}

bool ReadConfiguration(const char* config) {
    JsonValue document(TavUtils::JsonAdaptor::JSON_OBJECT);
    if (config == nullptr || !JsonCharReader().Parse(config, document)) {
        return false;
    }
    abnormalShellEnabled = document.IsMember("abnormalShell");
    reverseShellEnabled = document.IsMember("reverseShell");
    if (TavUtils::Env::GetEnv("AGENT_LOCATION") != nullptr) {
        reverseShellEnabled = false;
    } else if (reverseShellEnabled) {
        ReadReverseShell(document["reverseShell"]);
    }
    return true;
}
