#include "host/explain/judgement_text.h"

#include "host/base/printable.h"

namespace Host {
namespace {

constexpr size_t longestLine = 400;

void AppendLine(const std::string& head, const std::string& line, std::string& text) {
    text += head;
    if (!AppendPrintable(text, line, longestLine)) {
        text += "...";
    }
    text += '\n';
}

const char* HeadOf(Mark mark) {
    switch (mark) {
        case Mark::ok:
            return "  ok    ";
        case Mark::no:
            return "  no    ";
        case Mark::note:
            break;
    }
    return "  note  ";
}

std::string Summary(const std::vector<Judgement>& judgements) {
    std::string reporters;
    for (const Judgement& judgement : judgements) {
        if (judgement.reported) {
            reporters += (reporters.empty() ? "" : "; ") + judgement.detection;
        }
    }
    return reporters.empty() ? "No detection would report it." : "It would be reported by: " + reporters;
}

}  // namespace

std::string JudgementText(const std::vector<Judgement>& judgements) {
    std::string text;
    AppendLine("", Summary(judgements), text);
    for (const Judgement& judgement : judgements) {
        text += '\n';
        AppendLine("",
                   judgement.detection + (judgement.reported ? ": would report it" : ": would not report it") +
                       (judgement.verdict.empty() ? "" : ", " + judgement.verdict),
                   text);
        for (const Reason& reason : judgement.reasons) {
            AppendLine(HeadOf(reason.mark), reason.text, text);
        }
    }
    return text;
}

}  // namespace Host
