#include "host/sinks/sink_set.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/sinks/file_sink.h"
#include "host/sinks/stdout_sink.h"

namespace Host {
namespace {

std::unique_ptr<Sink> MakeSink(const SinkSpec& spec) {
    if (spec.type == SinkType::file) {
        return std::make_unique<FileSink>(spec.path);
    }
    return std::make_unique<StdoutSink>();
}

}  // namespace

void SinkSet::Configure(const std::vector<SinkSpec>& specs) {
    std::vector<Entry> wanted;
    for (const SinkSpec& spec : specs) {
        const auto open = std::find_if(entries_.begin(), entries_.end(), [&spec](const Entry& entry) {
            return entry.sink != nullptr && entry.spec == spec;
        });
        wanted.push_back(Entry{spec, open != entries_.end() ? std::move(open->sink) : nullptr});
    }
    // Finish the removed sinks first: their pending lines must precede the events of a new sink on the same file.
    Finish();
    for (Entry& entry : wanted) {
        if (entry.sink == nullptr) {
            entry.sink = MakeSink(entry.spec);
        }
    }
    entries_ = std::move(wanted);
}

void SinkSet::Write(std::string_view line) {
    std::string clean;
    if (line.find_first_of("\r\n") != std::string_view::npos) {
        clean = line;
        std::replace_if(
            clean.begin(), clean.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        line = clean;
    }
    for (const Entry& entry : entries_) {
        entry.sink->Write(line);
    }
}

bool SinkSet::Retry() {
    bool somethingLeft = false;
    for (const Entry& entry : entries_) {
        somethingLeft = entry.sink->Retry() || somethingLeft;
    }
    return somethingLeft;
}

void SinkSet::Reopen() {
    for (const Entry& entry : entries_) {
        entry.sink->Reopen();
    }
}

uint64_t SinkSet::Finish() {
    uint64_t lost = 0;
    for (const Entry& entry : entries_) {
        if (entry.sink != nullptr) {
            lost += entry.sink->Finish();
        }
    }
    entries_.clear();
    return lost;
}

}  // namespace Host
