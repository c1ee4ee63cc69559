// A paced walk through a directory.
#pragma once

#include <dirent.h>

#include <string>
#include <vector>

// Receives the name of one entry. Returns 0 to continue, anything else to end the walk.
using DirEntryCallback = int (*)(const char* dir, const char* name, std::vector<std::string>& out);

// Calls the callback for every entry except "." and "..", in the directory's order, until the callback or a stop of the
// module ends the walk; with limit, for at most 10001 entries. Returns -1 if dir is null or cannot be opened, otherwise
// 0, even if the walk ended early. Sleeps 5 ms per entry and a further 1 ms per 20 entries, or without limit per entry.
// Any thread.
int ScanDir(const char* dir, DirEntryCallback callback, std::vector<std::string>& out, bool limit);

// Adds one entry to count. Returns false and logs one line if that exceeds the limit of 10001 entries. Without limit,
// returns true and does not count.
bool CheckDirNum(int& count, const char* dir, bool limit);

// Calls the callback for one entry. Returns false if the walk must end.
bool DirEntryCheck(const dirent* entry, const char* dir, DirEntryCallback callback, std::vector<std::string>& out);

// A callback that appends name to out. Returns 0, or -1 if one of the pointers is null.
int CollectDirEntry(const char* dir, const char* name, std::vector<std::string>& out);
