// String helpers. Any thread.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace TavUtils::StringProcess {

// Returns the pieces of text between occurrences of separator. Empty pieces are dropped unless keepEmpty is set. With
// an empty separator the whole text is one piece.
std::vector<std::string> StrSplit(const std::string& text, const std::string& separator, bool keepEmpty);

// Returns text without blanks (space, \t, \n, \v, \f, \r) at both ends; text itself is unchanged.
std::string StrTrim(std::string& text);

// True if the whole text matches one of the patterns by the shell's wildcard rules (fnmatch(3) without flags: "*" and
// "?" match any byte, including "/"). Text and patterns end at their first zero byte.
bool IsMatchingShellWildcardList(const std::string& text, const std::set<std::string>& patterns);

}  // namespace TavUtils::StringProcess
