#include "host/base/printable.h"

namespace Host {
namespace {

unsigned int ByteAt(std::string_view text, size_t at) {
    return static_cast<unsigned char>(text[at]);
}

bool IsContinuation(std::string_view text, size_t at) {
    return at < text.size() && (ByteAt(text, at) & 0xC0U) == 0x80U;
}

// Length of the valid UTF-8 sequence that begins at the byte; 0 if there is none. The range of the second byte excludes
// overlong forms, surrogates and code points past U+10FFFF.
size_t SequenceLength(std::string_view text, size_t at) {
    const unsigned int lead = ByteAt(text, at);
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    if (!IsContinuation(text, at + 1)) {
        return 0;
    }
    const unsigned int second = ByteAt(text, at + 1);
    if (lead < 0xE0) {
        return 2;
    }
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
        (lead == 0xF4 && second > 0x8F)) {
        return 0;
    }
    const size_t length = lead < 0xF0 ? 3 : 4;
    for (size_t i = 2; i < length; ++i) {
        if (!IsContinuation(text, at + i)) {
            return 0;
        }
    }
    return length;
}

bool IsControl(std::string_view text, size_t at, size_t length) {
    const unsigned int first = ByteAt(text, at);
    // C1 controls (U+0080 to U+009F) control a terminal as ESC does.
    return length == 1 ? first < 0x20 || first == 0x7F : length == 2 && first == 0xC2 && ByteAt(text, at + 1) < 0xA0;
}

std::string Escaped(unsigned int byte) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            break;
    }
    constexpr char digits[] = "0123456789ABCDEF";
    return {'\\', 'x', digits[byte >> 4U], digits[byte & 0xFU]};
}

}  // namespace

bool AppendPrintable(std::string& line, std::string_view text, size_t limit) {
    const size_t end = line.size() + limit;
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = SequenceLength(text, at);
        if (length != 0 && !IsControl(text, at, length)) {
            if (line.size() + length > end) {
                return false;
            }
            line.append(text, at, length);
            at += length;
            continue;
        }
        const std::string escape = Escaped(ByteAt(text, at));
        if (length <= 1) {
            if (line.size() + escape.size() > end) {
                return false;
            }
            line += escape;
            ++at;
            continue;
        }
        const std::string second = Escaped(ByteAt(text, at + 1));
        if (line.size() + escape.size() + second.size() > end) {
            return false;
        }
        line += escape;
        line += second;
        at += length;
    }
    return true;
}

}  // namespace Host
