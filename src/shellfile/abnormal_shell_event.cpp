#include "shellfile/abnormal_shell_event.h"

#include <map>

#include "agent/events.h"
#include "agent/json.h"
#include "frame/event_text.h"
#include "frame/pacing.h"
#include "module/published.h"

using TavUtils::JsonAdaptor::JsonValue;
using enum TavUtils::Monitor::FileOperation;

static constexpr unsigned int eventPauseMicroseconds = 10000;

// Null for an unknown operation.
static const char* OperationName(int operation) {
    static const std::map<int, std::string> shellOperationNames{
        {FILE_ATTRIBUTE, "attribute"}, {FILE_MODIFIED, "modify"}, {FILE_DELETED, "delete"}, {FILE_MOVED, "move"},
        {FILE_MOVED_FROM, "move"},     {FILE_MOVED_TO, "move"},   {SHELL_COPY, "copy"},
    };
    const auto name = shellOperationNames.find(operation);
    return name == shellOperationNames.end() ? nullptr : name->second.c_str();
}

static void AddAttribute(const SHELL_EVENT& event, JsonValue& content) {
    JsonValue attribute(TavUtils::JsonAdaptor::JSON_OBJECT);
    attribute["type"] = event.type;
    attribute["from"] = event.from;
    attribute["to"] = event.to;
    JsonValue list(TavUtils::JsonAdaptor::JSON_OBJECT);
    list.TypeChangeToArray();
    list.JsonItemAddToArray(attribute);
    content.JsonItemAddToObject("attribute", list);
}

static void AddDetails(const SHELL_EVENT& event, JsonValue& content) {
    switch (event.fileOperationType) {
        case FILE_ATTRIBUTE:
            AddAttribute(event, content);
            break;
        case SHELL_COPY:
            content["command"] = event.command;
            content["relatedPath"] = event.relatedPath;
            break;
        case FILE_MOVED:
        case FILE_MOVED_FROM:
        case FILE_MOVED_TO:
            content["relatedPath"] = event.relatedPath;
            break;
        default:
            break;
    }
}

static void SendShellEventJson(const SHELL_EVENT& event) {
    JsonValue content(TavUtils::JsonAdaptor::JSON_OBJECT);
    content["path"] = event.path;
    const char* operation = OperationName(event.fileOperationType);
    if (operation != nullptr) {
        content["operationType"] = operation;
    }
    AddDetails(event, content);
    EventConsumer::Instance().PushMinuteLimitEvent(EventText(Published::shellFileEvent, content));
}

void AddShellEvent(const SHELL_EVENT& event) {
    SendShellEventJson(event);
    Pause(eventPauseMicroseconds);
}
