// What the shell files of the host looked like when they were last known good.
#pragma once

#include <map>
#include <set>
#include <string>

struct ShellAttr {
    int attr = -1;         // flags as FS_IOC_GETFLAGS gives them; -1 when they could not be read
    std::string attrName;  // text form of the flags; never filled
};

// Flags of the shell files by path. Written by the thread that starts the module, and then by the one that serves the
// fanotify group alone.
inline std::map<std::string, ShellAttr> shellAttrs;

// The shells as they were handed in.
inline std::set<std::string> shellFiles;

// Takes a fresh baseline of paths, sizes and digests. A shell that cannot be read stays one by its name. Called by the
// thread that initialises and starts the module, while nothing reads the baseline.
void InitShellsHashSize(std::set<std::string> shells);

// True if the file has the size and the digest of a shell, also under another name. One stat(2) where the size already
// tells; a read of the whole file otherwise. Any thread while the module is started.
bool IsShellByHash(std::string path);

// True if path is one of the shells, byte by byte as they were handed in. Any thread while the module is started.
bool IsShellFile(const std::string& path);

// Flags of the file as chattr(1) sets them; -1 on any failure, such as a file system without flags. Any thread.
int GetFileExt2Flags(const std::string& path);

// The value under key, empty if there is none.
std::string GetAttrValue(const std::map<std::string, std::string>& values, const std::string& key);
