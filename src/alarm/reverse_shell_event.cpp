#include "alarm/reverse_shell_event.h"

#include <arpa/inet.h>

#include "agent/json.h"
#include "frame/event_text.h"
#include "module/published.h"

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
    return EventText(Published::reverseShellEvent, content);
}
