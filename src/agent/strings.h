// Text helpers. All functions may be called from any thread.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace TavUtils::StringProcess {

// The pieces of text between occurrences of separator. Empty pieces are dropped unless keepEmpty is set. An empty
// separator gives the whole text as one piece.
std::vector<std::string> StrSplit(const std::string& text, const std::string& separator, bool keepEmpty);

// text without the blanks (space, \t, \n, \v, \f, \r) at both ends; text itself is left as it is.
std::string StrTrim(std::string& text);

// True if the whole text matches one of the patterns by the shell's wildcard rules (fnmatch(3) without flags: "*" and
// "?" match any byte, "/" included). Text and patterns end at their first zero byte.
bool IsMatchingShellWildcardList(const std::string& text, const std::set<std::string>& patterns);

}  // namespace TavUtils::StringProcess
