#include "host/sinks/file_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "host/base/descriptor.h"
#include "host/base/log.h"

namespace Host {
namespace {

constexpr mode_t fileMode = 0640;

}  // namespace

FileSink::FileSink(std::string path) : path_(std::move(path)) {
    FileSink::Reopen();
}

void FileSink::Write(std::string_view line) {
    std::string text(line);
    text += '\n';
    pending_.Push(std::move(text));
    if (Flush()) {
        return;
    }
    ++keptSinceFailure_;
    const bool firstLoss = lost_ == lostBeforeFailure_;
    lost_ += pending_.Trim(frontWritten_ != 0);
    if (firstLoss && lost_ != lostBeforeFailure_) {
        LogWarning("too many events are waiting for %s, dropping the oldest; make the file writable", path_.c_str());
    }
}

bool FileSink::Retry() {
    return !pending_.Empty() && !Flush();
}

void FileSink::Reopen() {
    file_.Close();
    const int error = Open();
    if (error != 0) {
        NoteFailure(error);
    } else {
        Flush();
    }
}

uint64_t FileSink::Finish() {
    Retry();
    lost_ += pending_.Size();
    pending_.Clear();
    if (lost_ != 0) {
        LogError("events lost: %s, because %s could not be written: %s", std::to_string(lost_).c_str(), path_.c_str(),
                 ErrorText(lastError_).c_str());
    }
    return lost_;
}

int FileSink::Open() {
    // O_NONBLOCK: opening a FIFO at this path must not block. O_RDWR: PrepareLineStart reads the last byte.
    Descriptor opened(::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, fileMode));
    if (!opened.IsOpen()) {
        return errno;
    }
    struct stat status {};
    if (::fstat(opened.Get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode)) {
        return EINVAL;
    }
    file_ = std::move(opened);
    identity_ = Identity{status.st_dev, status.st_ino};
    atLineStart_ = false;
    return 0;
}

int FileSink::FollowPath() {
    struct stat status {};
    if (file_.IsOpen() && ::stat(path_.c_str(), &status) == 0 && identity_ == Identity{status.st_dev, status.st_ino}) {
        return 0;
    }
    file_.Close();
    return Open();
}

// Makes the next write start a new line, or complete the line that was cut off at the end of this file.
int FileSink::PrepareLineStart() {
    if (atLineStart_) {
        return 0;
    }
    struct stat status {};
    if (::fstat(file_.Get(), &status) != 0) {
        return errno;
    }
    if (frontWritten_ != 0 && cutFile_ == identity_ && cutSize_ == status.st_size) {
        return 0;
    }
    frontWritten_ = 0;
    if (S_ISREG(status.st_mode) && status.st_size > 0) {
        char last = '\n';
        if (::pread(file_.Get(), &last, 1, status.st_size - 1) < 0) {
            return errno;
        }
        if (last != '\n') {
            const int error = WriteAll(file_.Get(), "\n").error;
            if (error != 0) {
                return error;
            }
        }
    }
    atLineStart_ = true;
    return 0;
}

int FileSink::WriteFront() {
    int error = FollowPath();
    if (error == 0) {
        error = PrepareLineStart();
    }
    if (error != 0) {
        return error;
    }
    const WriteResult result = WriteAll(file_.Get(), std::string_view(pending_.Front()).substr(frontWritten_));
    if (result.error == 0) {
        frontWritten_ = 0;
        atLineStart_ = true;
        return 0;
    }
    atLineStart_ = false;
    frontWritten_ += result.written;
    struct stat status {};
    if (::fstat(file_.Get(), &status) == 0) {
        cutFile_ = identity_;
        cutSize_ = status.st_size;
    }
    return result.error;
}

bool FileSink::Flush() {
    while (!pending_.Empty()) {
        const int error = WriteFront();
        if (error != 0) {
            NoteFailure(error);
            return false;
        }
        pending_.Pop();
    }
    NoteSuccess();
    return true;
}

void FileSink::NoteFailure(int error) {
    lastError_ = error;
    if (failed_) {
        return;
    }
    failed_ = true;
    keptSinceFailure_ = 0;
    lostBeforeFailure_ = lost_;
    LogError("cannot write events to %s: %s; keeping up to %zu events and retrying", path_.c_str(),
             error == EINVAL ? "it is not a regular file" : ErrorText(error).c_str(), PendingLines::maxLines);
}

void FileSink::NoteSuccess() {
    if (!failed_) {
        return;
    }
    failed_ = false;
    const uint64_t lost = lost_ - lostBeforeFailure_;
    LogWarning("writing events to %s again; %s delayed events were written, %s were lost", path_.c_str(),
               std::to_string(keptSinceFailure_ - lost).c_str(), std::to_string(lost).c_str());
}

}  // namespace Host
