#include "host/text/json_document.h"

namespace TavUtils::JsonAdaptor {

namespace {

constexpr int indentWidth = 4;

// JSON allows DEL and the C1 controls unescaped, but they would control a terminal that shows the event. Only strings
// can contain them.
std::string WithoutTerminalControls(std::string text) {
    constexpr char digits[] = "0123456789abcdef";
    std::string clean;
    size_t kept = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool isC1 = byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0;
        if (byte != 0x7F && !isC1) {
            continue;
        }
        clean.append(text, kept, at - kept);
        at += isC1 ? 1 : 0;
        const auto code = static_cast<unsigned char>(text[at]);
        clean.append({'\\', 'u', '0', '0', digits[code >> 4U], digits[code & 0xFU]});
        kept = at + 1;
    }
    if (kept == 0) {
        return text;
    }
    return clean.append(text, kept);
}

}  // namespace

JsonStreamWriter::JsonStreamWriter(bool indent) : indent_(indent) {}

bool JsonStreamWriter::Write(const JsonValue& value, std::string& text) const {
    const Json* found = Find(*value.document_, value.path_);
    text = found == nullptr ? "null"
                            : WithoutTerminalControls(
                                  found->dump(indent_ ? indentWidth : -1, ' ', false, Json::error_handler_t::replace));
    return true;
}

}  // namespace TavUtils::JsonAdaptor
