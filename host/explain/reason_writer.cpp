#include "host/explain/reason_writer.h"

namespace Host {
namespace {

constexpr size_t mostWritersNamed = 4;

}  // namespace

std::vector<Reason> ReasonWriter::Take(const Decision& decision) {
    const TestText& test = TextOf(decision.test);
    const bool speaksFor = decision.outcome == test.wanted;
    const std::string text =
        Fill(speaksFor ? test.yes : test.no, decision, scene_, speaksFor ? "" : Why(decision, test.role));
    switch (test.role) {
        case Role::socket:
            TakeSocket(decision, text, speaksFor);
            return {};
        case Role::writer:
            return TakeWriter(decision, text, speaksFor);
        case Role::need:
            return Finish({speaksFor ? Mark::note : Mark::no, text});
        case Role::repeat:
            return Finish({Mark::note, text});
        case Role::test:
        case Role::claim:
            break;
    }
    return Finish({speaksFor ? Mark::ok : Mark::no, text});
}

// The last test of a socket counts: the module may test it twice, and reads its table again in between.
void ReasonWriter::TakeSocket(const Decision& decision, const std::string& text, bool speaksFor) {
    socketReasons_.erase(decision.inode);
    if (!speaksFor) {
        socketReasons_[decision.inode] = text;
    } else if (!text.empty()) {
        note_ = text;
    }
}

std::vector<Reason> ReasonWriter::TakeWriter(const Decision& decision, const std::string& text, bool speaksFor) {
    if (speaksFor) {
        return text.empty() ? std::vector<Reason>() : Finish({Mark::ok, text});
    }
    writerReasons_.emplace_back(decision.other, text);
    socketReasons_.clear();
    note_.clear();
    return {};
}

// Completes the test that the recorded parts belong to, and forgets them.
std::vector<Reason> ReasonWriter::Finish(Reason reason) {
    std::vector<Reason> reasons;
    const bool passed = reason.mark == Mark::ok;
    if (!reason.text.empty()) {
        reasons.push_back(std::move(reason));
    }
    if (passed && !note_.empty()) {
        reasons.push_back({Mark::note, note_});
    }
    socketReasons_.clear();
    writerReasons_.clear();
    note_.clear();
    return reasons;
}

std::string ReasonWriter::Why(const Decision& decision, Role role) const {
    if (const auto socket = socketReasons_.find(decision.inode); socket != socketReasons_.end()) {
        return socket->second;
    }
    if (role == Role::writer) {
        return "";
    }
    const std::string pipe = "pipe " + std::to_string(decision.inode);
    std::string why;
    for (size_t i = 0; i < writerReasons_.size() && i < mostWritersNamed; ++i) {
        why += (why.empty() ? "" : "; ") + NameOf(scene_, writerReasons_[i].first) + " writes " + pipe + ", but " +
               writerReasons_[i].second;
    }
    if (why.empty()) {
        return "no other process in this pass writes " + pipe;
    }
    return writerReasons_.size() > mostWritersNamed ? why + "; and more" : why;
}

}  // namespace Host
