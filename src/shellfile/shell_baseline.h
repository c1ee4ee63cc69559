// The host's genuine shells: paths, sizes and digests, as they were at the last start.
#pragma once

#include <map>
#include <set>
#include <string>

// Reads a new baseline of paths, sizes and digests and then replaces the previous one in one step. A shell that cannot
// be read is kept by its path alone. Called by the thread that initialises and starts the module.
void InitShellsHashSize(std::set<std::string> shells);

// The functions below may be called from any thread. If a restart replaces the baseline at the same time, each call
// uses either the old one or the new one.

// The paths as they were passed in.
std::set<std::string> ShellFiles();

// True if the file has the size and the digest of a shell, under any name. Costs one stat(2), and reads the whole file
// only if its size is that of a shell.
bool IsShellByHash(std::string path);

// True if path is equal to one of the paths passed in. Paths are not normalised and links not resolved.
bool IsShellFile(const std::string& path);

// True if a shell has this size in bytes.
bool IsShellSize(unsigned long size);

// Resolved path of the shell with this digest; empty if there is none. Of several, the one whose path sorts last.
std::string ShellWithDigest(const std::string& digest);

// The file's flags, as chattr(1) sets them; -1 on any failure, for example on a file system without flags.
int GetFileExt2Flags(const std::string& path);

// The value under key; empty if there is none.
std::string GetAttrValue(const std::map<std::string, std::string>& values, const std::string& key);
