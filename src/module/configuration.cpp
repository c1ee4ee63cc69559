#include "module/configuration.h"

#include <set>
#include <string>
#include <utility>

#include "agent/env.h"
#include "agent/json.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "frame/whitelist.h"
#include "module/published.h"

using TavUtils::JsonAdaptor::JsonCharReader;
using TavUtils::JsonAdaptor::JsonValue;

static constexpr char logSource[] = "detect_shell";

static std::set<std::string> ReadWhitelist(JsonValue& reverseShell) {
    std::set<std::string> whitelist;
    if (!reverseShell.IsMember(Published::whitelistKey) || !reverseShell[Published::whitelistKey].IsArray()) {
        return whitelist;
    }
    for (const std::string& entry : reverseShell.GetJsonStringArray(Published::whitelistKey)) {
        if (whitelist.size() >= Published::maxWhitelistSize) {
            MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Whitelist size exceeds the threshold.");
            break;
        }
        whitelist.insert(entry);
    }
    return whitelist;
}

static void ReadReverseShell(JsonValue reverseShell) {
    if (reverseShell.IsMember(Published::detectIntervalKey) && reverseShell[Published::detectIntervalKey].IsInt()) {
        const int seconds = reverseShell.AsInt(Published::detectIntervalKey);
        if (seconds >= Published::minDetectInterval && seconds <= Published::maxDetectInterval) {
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
    abnormalShellEnabled = document.IsMember(Published::shellFileKey);
    reverseShellEnabled = document.IsMember(Published::reverseShellKey);
    if (TavUtils::Env::GetEnv(Published::locationVariable) != nullptr) {
        reverseShellEnabled = false;
    } else if (reverseShellEnabled) {
        ReadReverseShell(document[Published::reverseShellKey]);
    }
    return true;
}
