#include "frame/event_text.h"

#include "agent/time_master.h"

using TavUtils::JsonAdaptor::JsonStreamWriter;
using TavUtils::JsonAdaptor::JsonValue;

std::string EventText(const char* eventType, const JsonValue& content) {
    std::string time;
    TavUtils::TimeMaster::GetCurrentUTC(time);
    JsonValue event(TavUtils::JsonAdaptor::JSON_OBJECT);
    event["eventType"] = eventType;
    event["eventTime"] = time;
    event.JsonItemAddToObject("eventContent", content);
    std::string text;
    JsonStreamWriter(false).Write(event, text);
    return text;
}
