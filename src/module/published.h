// Names and limits of the module that users and other programs rely on. They are defined only here; the module, the
// agent, the demonstration and the tests include them.
#pragma once

#include <cstddef>

namespace Published {

// The module's entries. The agent looks them up by name. init and start return 1 on success and 0 on failure.
using InitEntry = int (*)();
using StartEntry = int (*)(const char* config);
using StopEntry = void (*)(const char* code);
using DeinitEntry = void (*)();
inline constexpr char initEntry[] = "InitModule";
inline constexpr char startEntry[] = "StartModule";
inline constexpr char stopEntry[] = "StopModule";
inline constexpr char deinitEntry[] = "DeinitModule";

// Tasks on the agent's scheduler.
inline constexpr char periodScanTask[] = "check shell task";
inline constexpr char instantScanTask[] = "check shell by netlink procs";
inline constexpr char shortCommandTask[] = "check tmp shell task";

// Milliseconds from the module's start to the first run of each task, and between two runs. The interval of the period
// scan is detectInterval.
inline constexpr unsigned int firstPeriodScanMs = 20000;
inline constexpr unsigned int firstInstantScanMs = 1000;
inline constexpr unsigned int instantScanIntervalMs = 1000;
inline constexpr unsigned int firstShortCommandSweepMs = 1000;
inline constexpr unsigned int shortCommandSweepIntervalMs = 10000;

// Detection functions in status reports, and the code of a function without an error.
inline constexpr char shellFileFunction[] = "shell-file-tampering";
inline constexpr char reverseShellFunction[] = "reverse-shell-attack";
inline constexpr char inOrderCode[] = "0000";

// Types of events.
inline constexpr char shellFileEvent[] = "abnormal-shell";
inline constexpr char reverseShellEvent[] = "reverse-shell";

// Keys of the configuration. The first two enable a detection function; the others belong to reverseShell.
inline constexpr char shellFileKey[] = "abnormalShell";
inline constexpr char reverseShellKey[] = "reverseShell";
inline constexpr char detectIntervalKey[] = "detectInterval";
inline constexpr char whitelistKey[] = "whitelist";

// Limits of the configuration: seconds between two period scans, number of whitelist entries.
inline constexpr int minDetectInterval = 30;
inline constexpr int maxDetectInterval = 86400;
inline constexpr int defaultDetectInterval = 90;
inline constexpr size_t maxWhitelistSize = 50;

// Environment variables. If locationVariable is set, the reverse-shell function stays off.
inline constexpr char locationVariable[] = "AGENT_LOCATION";
inline constexpr char pathVariable[] = "PATH";

// The agent's setting for a folder, the list of shells in that folder, and the host's list.
inline constexpr char folderSetting[] = "TAVORIN_ETC";
inline constexpr char shellListName[] = "default_shells";
inline constexpr char hostShellList[] = "/etc/shells";

// Names of the detections for users.
inline constexpr char periodScan[] = "period scan";
inline constexpr char instantScan[] = "instant scan";
inline constexpr char shortCommandWatcher[] = "short-command watcher";
inline constexpr char shellFileProtection[] = "shell file protection";

// Parts of the instant scan and of shell file protection. Their requirements on the host differ.
inline constexpr char instantScanOnSocket[] = "instant scan, waits on a socket itself";
inline constexpr char instantScanByRelay[] = "instant scan, pipe fed by a relay";
inline constexpr char instantScanByDescendant[] = "instant scan, pipe fed by a descendant";
inline constexpr char instantScanByRawSocket[] = "instant scan, Unix stream with a raw-socket parent";
inline constexpr char instantScanOnTerminal[] = "instant scan, terminal held by its parent";
inline constexpr char shellFileChange[] = "shell file protection, change";
inline constexpr char shellFileFlags[] = "shell file protection, flags";
inline constexpr char shellFileCopy[] = "shell file protection, copy";

}  // namespace Published
