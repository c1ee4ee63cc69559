// Owners of descriptors, streams and directories.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>

// Closes its descriptor on destruction; -1 stands for none.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ != -1) {
            close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int Get() const { return fd_; }

private:
    int fd_;
};

struct CloseStream {
    void operator()(FILE* stream) const { fclose(stream); }
};
using FileStream = std::unique_ptr<FILE, CloseStream>;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

// True for "." and "..".
inline bool IsDotEntry(const dirent& entry) {
    return strcmp(entry.d_name, ".") == 0 || strcmp(entry.d_name, "..") == 0;
}
