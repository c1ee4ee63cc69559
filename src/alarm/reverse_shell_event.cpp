#include "alarm/reverse_shell_event.h"

#include <arpa/inet.h>

#include "agent/json.h"
#include "agent/time_master.h"

using TavUtils::JsonAdaptor::JsonStreamWriter;
using TavUtils::JsonAdaptor::JsonValue;

static std::string AddressText(uint32_t address) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

std::string ReverseShellEventText(const RshellAlarmInfo& record) {
    JsonValue content(TavUtils::JsonAdaptor::JSON_OBJECT);
    content["pid"] = record.pid;
    content["path"] = record.path;
    content["ppid"] = record.ppid;
    content["parentPath"] = record.parentPath;
    content["cmdline"] = record.cmdline;
    content["parentCmdline"] = record.parentCmdline;
    content["inode"] = record.inode;
    content["sourcePath"] = record.sourcePath;
    content["hash"] = record.hash;
    content["localIp"] = AddressText(record.localIp);
    content["localPort"] = static_cast<int>(record.localPort);
    content["remoteIp"] = AddressText(record.remoteIp);
    content["remotePort"] = static_cast<int>(record.remotePort);

    std::string time;
    TavUtils::TimeMaster::GetCurrentUTC(time);
    JsonValue event(TavUtils::JsonAdaptor::JSON_OBJECT);
    event["eventType"] = "reverse-shell";
    event["eventTime"] = time;
    event.JsonItemAddToObject("eventContent", content);
    std::string text;
    JsonStreamWriter(false).Write(event, text);
    return text;
}
