// Conversions between text, numbers and documents.
#pragma once

#include <string>

#include "agent/json.h"

namespace TavUtils::Convert {

// True, with number set, when the whole text is a decimal number within the range of int; otherwise number is left as
// it was. Any thread.
bool StringToInt(const std::string& text, int& number);

// The value as one line of JSON. Any thread, as long as the document is used by no other.
std::string JsonToString(const JsonAdaptor::JsonValue& value);

}  // namespace TavUtils::Convert
