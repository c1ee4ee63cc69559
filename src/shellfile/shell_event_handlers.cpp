#include "shellfile/shell_event_handlers.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <vector>

#include "agent/files.h"
#include "agent/monitor.h"
#include "agent/strings.h"
#include "agent/user_info.h"
#include "shellfile/shell_baseline.h"

using enum TavUtils::Monitor::FileOperation;

using ValueText = std::string (*)(const std::string& value);

// Anything but a decimal number counts as 0. On 32-bit hosts ids above 2147483647 count as that number.
static unsigned int Number(const std::string& value) {
    return static_cast<unsigned int>(strtol(value.c_str(), nullptr, 10));
}

static std::string ModeText(const std::string& value) {
    return TavUtils::FileAttribute::StModeString(Number(value));
}

static std::string UserText(const std::string& value) {
    return TavUtils::UserInfo::GetUserNameByUid(Number(value));
}

static std::string GroupText(const std::string& value) {
    return TavUtils::UserInfo::GetGroupNameByGid(Number(value));
}

static std::string PlainText(const std::string& value) {
    return value;
}

// The keys of each attribute in a report's detail, in the order in which the events are sent.
static constexpr struct {
    const char* oldKey;
    const char* newKey;
    const char* type;
    ValueText text;
} attributes[] = {
    {"oaccess", "access", "permission", ModeText},
    {"ouid", "cuid", "owner", UserText},
    {"ogid", "cgid", "group", GroupText},
    {"olink", "link", "links", PlainText},
};

// The detail is a word, which is ignored, followed by KEY=VALUE tokens.
static std::map<std::string, std::string> ParseDetail(const std::string& detail) {
    std::map<std::string, std::string> values;
    const std::vector<std::string> tokens = TavUtils::StringProcess::StrSplit(detail, " ", false);
    for (size_t i = 1; i < tokens.size(); ++i) {
        const std::vector<std::string> parts = TavUtils::StringProcess::StrSplit(tokens[i], "=", false);
        // StrSplit drops empty parts, so that "key==value" has two parts as well.
        if (parts.size() == 2 && std::ranges::count(tokens[i], '=') == 1) {
            values[parts[0]] = parts[1];
        }
    }
    return values;
}

static void OnPlainEvent(SHELL_EVENT& event, const char* /*path*/, const char* /*otherPath*/, int operation,
                         const std::string& /*detail*/) {
    event.fileOperationType = operation;
    AddShellEvent(event);
}

static void OnRelatedEvent(SHELL_EVENT& event, const char* /*path*/, const char* otherPath, int operation,
                           const std::string& /*detail*/) {
    event.fileOperationType = operation;
    if (otherPath != nullptr) {
        event.relatedPath = otherPath;
    }
    AddShellEvent(event);
}

static bool IsNamed(const char* path) {
    return path != nullptr && path[0] != '\0';
}

static void OnMoveEvent(SHELL_EVENT& event, const char* path, const char* otherPath, int operation,
                        const std::string& /*detail*/) {
    event.fileOperationType = operation;
    event.relatedPath.clear();
    if (IsNamed(path) && IsNamed(otherPath)) {
        if (IsShellFile(path)) {
            event.fileOperationType = FILE_MOVED_FROM;
            event.relatedPath = otherPath;
        } else if (IsShellFile(otherPath)) {
            event.fileOperationType = FILE_MOVED_TO;
            event.relatedPath = path;
        }
    }
    AddShellEvent(event);
}

static void OnAttributeEvent(SHELL_EVENT& event, const char* /*path*/, const char* /*otherPath*/, int operation,
                             const std::string& detail) {
    event.fileOperationType = operation;
    const std::map<std::string, std::string> values = ParseDetail(detail);
    for (const auto& attribute : attributes) {
        const std::string before = GetAttrValue(values, attribute.oldKey);
        const std::string now = GetAttrValue(values, attribute.newKey);
        if (before.empty() || now.empty()) {
            continue;
        }
        event.from = attribute.text(before);
        event.to = attribute.text(now);
        event.type = attribute.type;
        AddShellEvent(event);
    }
}

static constexpr struct {
    int operation;
    void (*handle)(SHELL_EVENT&, const char* path, const char* otherPath, int operation, const std::string& detail);
} operations[] = {
    {FILE_MODIFIED, OnPlainEvent},     {FILE_DELETED, OnPlainEvent},    {FILE_MOVED, OnMoveEvent},
    {FILE_MOVED_FROM, OnRelatedEvent}, {FILE_MOVED_TO, OnRelatedEvent}, {FILE_ATTRIBUTE, OnAttributeEvent},
};

void HandleShellReport(SHELL_EVENT& event, const char* path, const char* otherPath, int operation,
                       const std::string& detail) {
    for (const auto& row : operations) {
        if (row.operation == operation) {
            row.handle(event, path, otherPath, operation, detail);
            return;
        }
    }
}
