// The state of a file when it was last examined.
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
    int64_t changedNs = 0;   // last change of content or attributes

    bool operator==(const FileState&) const = default;
};

// Reads the state of the inode behind a descriptor, which may be open with O_PATH. False on failure.
bool ReadFileState(int fd, FileState& state);

// Reads the state of the file with that path without following links. False on failure, with errno.
bool ReadFileState(const std::string& path, FileState& state);

// The entries of a directory by name, at most limit; links are not followed. An entry of which the
// state cannot be read is omitted. 0 or the errno of the failure, E2BIG if there are more of them.
int ListDirectory(const std::string& path, size_t limit, std::map<std::string, FileState>& entries);

// True for failures that may pass: some resource has run out.
bool IsShortage(int error);

bool IsDirectory(const FileState& state);

// True if the size is above 0 and it is not a directory.
bool HasContent(const FileState& state);

bool IsSameFile(const FileState& one, const FileState& other);

// True if the content may have been written between the two states.
bool ContentMayDiffer(const FileState& old, const FileState& now);

// The same after a loss of events, when a reset modification time may hide a write: any change counts that no attribute
// explains.
bool ContentMayDifferUnseen(const FileState& old, const FileState& now);

// The detail text of an attribute report: "attribute", then for each differing value of mode, owner, group and link
// count a blank, old key=value, a blank and new key=value, in decimal: "attribute oaccess=33261 access=33206". Empty if
// nothing differs. Ignores the link count of a directory, which counts the directories in it.
std::string AttributeDetail(const FileState& old, const FileState& now);

}  // namespace Host
