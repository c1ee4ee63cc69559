#include "agent/strings.h"

#include <fnmatch.h>

namespace TavUtils::StringProcess {

std::vector<std::string> StrSplit(const std::string& text, const std::string& separator, bool keepEmpty) {
    std::vector<std::string> pieces;
    const auto add = [&](size_t begin, size_t end) {
        if (keepEmpty || end > begin) {
            pieces.push_back(text.substr(begin, end - begin));
        }
    };
    size_t begin = 0;
    if (!separator.empty()) {
        for (size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
            add(begin, end);
            begin = end + separator.size();
        }
    }
    add(begin, text.size());
    return pieces;
}

std::string StrTrim(std::string& text) {
    constexpr const char* blanks = " \t\n\v\f\r";
    const size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool IsMatchingShellWildcardList(const std::string& text, const std::set<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
        if (fnmatch(pattern.c_str(), text.c_str(), 0) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace TavUtils::StringProcess
