// Commands that the configuration exempts.
#pragma once

#include <memory>
#include <set>
#include <string>

// The whitelist as it stands: prefixes to IsCmdInIgnoreList, wildcard patterns to the period scan. A repeated start may
// replace the whitelist under a running scan, which then goes on with the one it took. Any thread.
std::shared_ptr<const std::set<std::string>> CurrentWhitelist();

// Puts whitelist in place of the present one. Any thread.
void ReplaceWhitelist(std::set<std::string> whitelist);

// True when the command line begins with an entry of the whitelist, be it in the middle of a word. Sleeps 10 ms, and
// 0.5 ms after each entry that does not match. Any thread.
bool IsCmdInIgnoreList(const std::string& cmdline);
