#include "agent/convert.h"

#include <charconv>

namespace TavUtils::Convert {

bool StringToInt(const std::string& text, int& number) {
    int parsed = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, parsed);
    if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    number = parsed;
    return true;
}

std::string JsonToString(const JsonAdaptor::JsonValue& value) {
    std::string text;
    JsonAdaptor::JsonStreamWriter(false).Write(value, text);
    return text;
}

}  // namespace TavUtils::Convert
