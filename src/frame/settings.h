// Settings of the whole module, from the host and from the configuration. Written by the thread that initialises and
// starts the module, before the tasks and callbacks that read them exist. Kept when the module stops.
#pragma once

#include <set>
#include <string>

#include "module/published.h"

// All paths of shell programs on this host, as listed and resolved.
inline std::set<std::string> shellPaths;

// Inode numbers of the files named sshd on PATH.
inline std::set<unsigned long> sshdInodes;

// Seconds between two period scans, within the published limits.
inline int detectInterval = Published::defaultDetectInterval;

// Detection functions that the configuration enables and the environment permits.
inline bool reverseShellEnabled = false;
inline bool abnormalShellEnabled = false;
