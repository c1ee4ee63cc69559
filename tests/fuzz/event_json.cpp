// A command line, as other processes choose it, on its way into an event's line of JSON.

#include <algorithm>
#include <string>

#include "agent/convert.h"
#include "agent/events.h"
#include "agent/json.h"
#include "tests/fakes/fake_agent.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

using TavUtils::JsonAdaptor::JsonCharReader;
using TavUtils::JsonAdaptor::JsonValue;

constexpr char replacement[] = "\xEF\xBF\xBD";

std::string EventOf(const std::string& cmdline) {
    JsonValue content(TavUtils::JsonAdaptor::JSON_OBJECT);
    content["pid"] = 4711;
    content["cmdline"] = cmdline;
    JsonValue event(TavUtils::JsonAdaptor::JSON_OBJECT);
    event["eventType"] = "reverse-shell";
    event.JsonItemAddToObject("eventContent", content);
    return TavUtils::Convert::JsonToString(event);
}

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' || byte == 0x7F;
}

bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The parser refuses text that is not UTF-8, so that whatever it reads back is.
std::string ReadBack(const std::string& line) {
    JsonValue event(TavUtils::JsonAdaptor::JSON_OBJECT);
    Require(JsonCharReader().Parse(line, event), "an event is valid JSON");
    JsonValue content = event["eventContent"];
    Require(event.AsString("eventType") == "reverse-shell" && content.AsInt("pid") == 4711,
            "the other members are as they were");
    return content.AsString("cmdline");
}

void CheckTruncated(const std::string& text, unsigned int limit) {
    const std::string cut = EventAdapter::TruncateString(text, limit, true);
    Require(cut.size() <= limit && text.compare(0, cut.size(), cut) == 0, "a cut text is a short beginning of it");
    Require(text.size() > limit || cut == text, "what fits is not cut");
    Require(cut.size() + 4 > std::min<size_t>(limit, text.size()), "no more than one character is lost");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fake::ResetAgent();
    const std::string cmdline = TextOf(data, size);
    const std::string line = EventOf(cmdline);
    Require(std::none_of(line.begin(), line.end(), IsControl), "an event is one line without controls");
    const std::string read = ReadBack(line);
    Require(read == cmdline || (read.find(replacement) != std::string::npos && !IsAscii(cmdline)),
            "only bytes that are no UTF-8 are replaced");
    Require(EventOf(read) == line, "an event written again is the same event");
    for (const unsigned int limit : {0U, 7U, 100U}) {
        CheckTruncated(cmdline, limit);
    }
    return 0;
}
