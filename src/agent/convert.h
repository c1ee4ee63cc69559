// Conversions between text, numbers and documents.
#pragma once

#include <string>

#include "agent/json.h"

namespace TavUtils::Convert {

// Sets number and returns true if the whole text is a decimal number in the range of int; otherwise number is
// unchanged. Any thread.
bool StringToInt(const std::string& text, int& number);

// Returns the value as one line of JSON. Any thread, if no other thread uses the document.
std::string JsonToString(const JsonAdaptor::JsonValue& value);

}  // namespace TavUtils::Convert
