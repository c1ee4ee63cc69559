// Commands that the configuration exempts.
#pragma once

#include <memory>
#include <set>
#include <string>

// Returns the current whitelist. IsCmdInIgnoreList takes its entries as prefixes, the period scan as wildcard patterns.
// A repeated start may replace the whitelist during a scan; the scan continues with its copy. Any thread.
std::shared_ptr<const std::set<std::string>> CurrentWhitelist();

// Replaces the whitelist. Any thread.
void ReplaceWhitelist(std::set<std::string> whitelist);

// True if the command line begins with an entry of the whitelist. The entry may end within a word. Sleeps 10 ms, and
// 0.5 ms after each entry that does not match. Any thread.
bool IsCmdInIgnoreList(const std::string& cmdline);
