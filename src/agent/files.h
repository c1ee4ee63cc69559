// Paths, links and small configuration files. Any thread.
#pragma once

#include <set>
#include <string>

namespace TavUtils {

namespace FileAttribute {

// Returns the last component of path, as basename(3): "/" for the root, "." for the empty text.
std::string GetBasename(const std::string& path);

// Returns the target of a symbolic link, unresolved; empty if it cannot be read.
std::string GetRealLink(const std::string& path);

// Returns the canonical path with all links resolved; empty on failure.
std::string GetRealPath(const std::string& path);

// Returns st_mode in the form of ls -l, such as "-rwxr-xr-x".
std::string StModeString(unsigned int mode);

// True for names that editors and package managers give to files before they rename them.
bool IsTemporaryFile(const std::string& path);

}  // namespace FileAttribute

namespace FileOperation {

// Adds each shell of a file in the format of /etc/shells (shells(5)): one absolute path per line, "#" begins a comment,
// blanks around the path are ignored. Reads the first MiB of the file. Returns false and adds nothing if the file is
// missing, unreadable or not a regular file.
bool ParseShellsFile(std::set<std::string>& shells, const std::string& file);

}  // namespace FileOperation

}  // namespace TavUtils
