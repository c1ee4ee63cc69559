// The outer object of the module's events.
#pragma once

#include <string>

#include "agent/json.h"

// Returns an event with this type, the current time and this content as one line of JSON. Any thread.
std::string EventText(const char* eventType, const TavUtils::JsonAdaptor::JsonValue& content);
