// Paths, links and the small files that the agent knows the form of. All functions may be called from any thread.
#pragma once

#include <set>
#include <string>

namespace TavUtils {

namespace FileAttribute {

// Last path component, as basename(3) gives it: "/" for the root, "." for the empty text.
std::string GetBasename(const std::string& path);

// Target of a symbolic link as it stands; empty if it cannot be read.
std::string GetRealLink(const std::string& path);

// Canonical path with all links resolved; empty on failure.
std::string GetRealPath(const std::string& path);

// st_mode as ls -l shows it, such as "-rwxr-xr-x".
std::string StModeString(unsigned int mode);

// True for the names that editors and package managers give to files on their way to another name.
bool IsTemporaryFile(const std::string& path);

}  // namespace FileAttribute

namespace FileOperation {

// Adds each shell listed in a file of the form of /etc/shells (shells(5)): one absolute path a line, "#" opens a
// comment, blanks around the path do not count. A missing or unreadable file adds nothing and gives false.
bool ParseShellsFile(std::set<std::string>& shells, const std::string& file);

}  // namespace FileOperation

}  // namespace TavUtils
