// A command line, which other processes choose, in an event's line of JSON.

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

// Parses the event and returns its command line. The parser accepts only UTF-8.
std::string ReadBack(const std::string& line) {
    JsonValue event(TavUtils::JsonAdaptor::JSON_OBJECT);
    Require(JsonCharReader().Parse(line, event), "an event is valid JSON");
    JsonValue content = event["eventContent"];
    Require(event.AsString("eventType") == "reverse-shell" && content.AsInt("pid") == 4711,
            "the other members are unchanged");
    return content.AsString("cmdline");
}

void CheckTruncated(const std::string& text, unsigned int limit) {
    const std::string cut = EventAdapter::TruncateString(text, limit, true);
    Require(cut.size() <= limit && text.compare(0, cut.size(), cut) == 0, "a cut text is a prefix within the limit");
    Require(text.size() > limit || cut == text, "a text within the limit is not cut");
    Require(cut.size() + 4 > std::min<size_t>(limit, text.size()), "at most one character is lost");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fake::ResetAgent();
    const std::string cmdline = TextOf(data, size);
    const std::string line = EventOf(cmdline);
    Require(std::none_of(line.begin(), line.end(), IsControl), "an event is one line without control characters");
    const std::string read = ReadBack(line);
    Require(read == cmdline || (read.find(replacement) != std::string::npos && !IsAscii(cmdline)),
            "only invalid UTF-8 is replaced");
    Require(EventOf(read) == line, "writing the event again gives the same text");
    for (const unsigned int limit : {0U, 7U, 100U}) {
        CheckTruncated(cmdline, limit);
    }
    return 0;
}
