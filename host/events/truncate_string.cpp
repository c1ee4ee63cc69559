#include "agent/events.h"

namespace EventAdapter {

namespace {

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// Length of the UTF-8 sequence that begins with c; 1 if none does.
size_t SequenceBytes(char c) {
    const auto lead = static_cast<unsigned char>(c);
    if (lead >= 0xC2U && lead <= 0xDFU) {
        return 2;
    }
    if (lead >= 0xE0U && lead <= 0xEFU) {
        return 3;
    }
    return lead >= 0xF0U && lead <= 0xF4U ? 4 : 1;
}

}  // namespace

std::string TruncateString(const std::string& text, unsigned int limit, bool wholeCharacters) {
    if (text.size() <= limit) {
        return text;
    }
    size_t cut = limit;
    if (wholeCharacters) {
        // Bytes that are not UTF-8 form no character to keep whole. Without this check, a run of stray continuation
        // bytes would cut off valid text before it.
        size_t lead = cut;
        while (lead > 0 && cut - lead < 3 && IsContinuation(text[lead])) {
            --lead;
        }
        const size_t end = lead + SequenceBytes(text[lead]);
        bool isWhole = lead < cut && end > cut && end <= text.size();
        for (size_t i = cut; isWhole && i < end; ++i) {
            isWhole = IsContinuation(text[i]);
        }
        if (isWhole) {
            cut = lead;
        }
    }
    return text.substr(0, cut);
}

}  // namespace EventAdapter
