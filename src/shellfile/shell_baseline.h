// What the shell files of the host looked like when they were last known good.
#pragma once

#include <map>
#include <set>
#include <string>

// Takes a fresh baseline of paths, sizes and digests, and puts it in place of the present one when it is whole. A shell
// that cannot be read stays one by its name. Called by the thread that initialises and starts the module.
void InitShellsHashSize(std::set<std::string> shells);

// The functions below may be called from any thread. A repeated start may replace the baseline meanwhile; each answer
// is that of the one or the other.

// The shells as they were handed in.
std::set<std::string> ShellFiles();

// True if the file has the size and the digest of a shell, also under another name. One stat(2) where the size already
// tells; a read of the whole file otherwise.
bool IsShellByHash(std::string path);

// True if path is one of the shells, byte by byte as they were handed in.
bool IsShellFile(const std::string& path);

// True if some shell has this size in bytes.
bool IsShellSize(unsigned long size);

// Resolved path of a shell with this digest; empty if there is none.
std::string ShellWithDigest(const std::string& digest);

// Flags of the file as chattr(1) sets them; -1 on any failure, such as a file system without flags.
int GetFileExt2Flags(const std::string& path);

// The value under key, empty if there is none.
std::string GetAttrValue(const std::map<std::string, std::string>& values, const std::string& key);
