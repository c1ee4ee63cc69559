// Settings in force, from the host and from the configuration, for all of the module. Written by the thread that
// initialises and starts the module, before the tasks and callbacks that read them exist; kept across stops.
#pragma once

#include <set>
#include <string>

#include "module/published.h"

// Every path of a shell program on this host, both as listed and resolved.
inline std::set<std::string> shellPaths;

// Inode numbers of the files that the command sshd stands for on PATH.
inline std::set<unsigned long> sshdInodes;

// Period of the period scan in seconds, within the published limits.
inline int detectInterval = Published::defaultDetectInterval;

// Detection functions that were asked for and are permitted.
inline bool reverseShellEnabled = false;
inline bool abnormalShellEnabled = false;
