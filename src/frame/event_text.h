// The frame that all events of the module have.
#pragma once

#include <string>

#include "agent/json.h"

// The event of this type with this content, stamped with the present time, as one line of JSON. Any thread.
std::string EventText(const char* eventType, const TavUtils::JsonAdaptor::JsonValue& content);
