// Writes events to a file, one per line.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "host/base/descriptor.h"
#include "host/sinks/pending_lines.h"
#include "host/sinks/sink.h"

namespace Host {

// Follows the path: after the file is moved or deleted, the next event goes to a new file. Lines that cannot be written
// are queued within the limits of PendingLines and retried in order. The start and the end of such a failure are logged
// once each.
class FileSink : public Sink {
public:
    explicit FileSink(std::string path);

    void Write(std::string_view line) override;
    bool Retry() override;
    void Reopen() override;
    uint64_t Finish() override;

private:
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const Identity&) const = default;
    };

    int Open();  // functions that return int return an errno, 0 for success
    int FollowPath();
    int PrepareLineStart();
    int WriteFront();
    bool Flush();
    void NoteFailure(int error);
    void NoteSuccess();

    const std::string path_;
    Descriptor file_;
    Identity identity_;  // of file_
    bool atLineStart_ = false;

    PendingLines pending_;
    size_t frontWritten_ = 0;  // bytes of the first pending line that are already at the end of cutFile_
    Identity cutFile_;
    off_t cutSize_ = 0;  // size of cutFile_ with those bytes

    bool failed_ = false;
    int lastError_ = 0;
    size_t keptSinceFailure_ = 0;
    uint64_t lost_ = 0;
    uint64_t lostBeforeFailure_ = 0;
};

}  // namespace Host
