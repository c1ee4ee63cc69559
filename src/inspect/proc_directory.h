// A paced walk over the entries of a directory.
#pragma once

#include <dirent.h>

#include <string>
#include <vector>

// Takes one entry's name; 0 to go on, anything else to stop the walk.
using DirEntryCallback = int (*)(const char* dir, const char* name, std::vector<std::string>& out);

// Hands every entry but "." and ".." to the callback, in the order in which the directory gives them, until the
// callback or a stop of the module ends it; with limit, no more than 10001 entries. -1 if dir is null or cannot be
// opened, else 0, also when the walk was ended early. Costs 5 ms an entry and 1 ms more for each twentieth (without
// limit, for each). Any thread.
int ScanDir(const char* dir, DirEntryCallback callback, std::vector<std::string>& out, bool limit);

// Counts one entry in count; false, with a log line, if it is beyond the 10001 that are allowed. Without limit true,
// and nothing is counted.
bool CheckDirNum(int& count, const char* dir, bool limit);

// Hands one entry to the callback; false if the walk shall end.
bool DirEntryCheck(const dirent* entry, const char* dir, DirEntryCallback callback, std::vector<std::string>& out);

// A callback that appends name to out. 0, or -1 if one of the pointers is null.
int CollectDirEntry(const char* dir, const char* name, std::vector<std::string>& out);
