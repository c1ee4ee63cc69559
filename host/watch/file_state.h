// The state of a file at the last look.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace Host {

struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    unsigned int mode = 0;
    unsigned int user = 0;
    unsigned int group = 0;
    unsigned long links = 0;
    int64_t size = 0;
    int64_t modifiedNs = 0;  // last write to the content
    int64_t changedNs = 0;   // last change of anything

    bool operator==(const FileState&) const = default;
};

// State of the inode behind a descriptor, which may be open with O_PATH. False on failure.
bool ReadFileState(int fd, FileState& state);

// State of the file with that path, links not followed. False on failure, with errno.
bool ReadFileState(const std::string& path, FileState& state);

// The entries of a directory by name, at most limit; links are not followed. An entry of which the
// state cannot be read is omitted. 0 or the errno of the failure, E2BIG if there are more of them.
int ListDirectory(const std::string& path, size_t limit, std::map<std::string, FileState>& entries);

// True for failures that pass: something has run out.
bool IsShortage(int error);

bool IsDirectory(const FileState& state);

// True for anything but a directory that has bytes in it.
bool HasContent(const FileState& state);

bool IsSameFile(const FileState& one, const FileState& other);

// True if the content may have been written in between.
bool ContentMayDiffer(const FileState& old, const FileState& now);

// The same after a loss of events, when a reset time of modification may hide a write: then any change counts that no
// attribute explains.
bool ContentMayDifferUnseen(const FileState& old, const FileState& now);

// The detail text of an attribute report: "attribute" and then, for each of mode, owner, group and link count that
// differs, a blank, old key=value, a blank, new key=value, in decimal: "attribute oaccess=33261 access=33206". Empty if
// nothing differs. The link count of a directory is that of the directories in it and does not count.
std::string AttributeDetail(const FileState& old, const FileState& now);

}  // namespace Host
