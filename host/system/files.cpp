#include "agent/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "host/base/descriptor.h"
#include "host/system/small_file.h"

namespace TavUtils {

namespace {

constexpr size_t maxShellsFileBytes = 1024 * 1024;
constexpr size_t maxLinkBytes = 64 * 1024;

// System calls would cut a text at a zero byte and use another file.
bool IsPath(const std::string& path) {
    return !path.empty() && path.find('\0') == std::string::npos;
}

bool IsAlphanumeric(std::string_view text) {
    for (const char c : text) {
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!isLetter && (c < '0' || c > '9')) {
            return false;
        }
    }
    return true;
}

bool IsHex(std::string_view text) {
    return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

bool HasTemporarySuffix(std::string_view name) {
    constexpr std::string_view suffixes[] = {"~", ".swp", ".swx", ".swo", ".tmp", ".dpkg-new", ".dpkg-tmp"};
    for (const std::string_view suffix : suffixes) {
        if (name.ends_with(suffix)) {
            return true;
        }
    }
    return false;
}

// rpm unpacks "name" as "name;5f3a9c01".
bool IsRpmTemporary(std::string_view name) {
    const size_t mark = name.rfind(';');
    return mark != std::string_view::npos && mark > 0 && name.size() - mark == 9 && IsHex(name.substr(mark + 1));
}

// sed -i writes to "sed" and the six characters of mkostemp(3).
bool IsSedTemporary(std::string_view name) {
    return name.size() == 9 && name.starts_with("sed") && IsAlphanumeric(name.substr(3));
}

// ".#name" is a lock and "#name#" an unsaved buffer of Emacs.
bool IsEmacsTemporary(std::string_view name) {
    return (name.size() > 2 && name.starts_with(".#")) ||
           (name.size() > 2 && name.front() == '#' && name.back() == '#');
}

// vi tests whether a directory is writable with a file of the first free name of this series.
bool IsViProbe(std::string_view name) {
    constexpr std::string_view names[] = {"4913", "5036", "5159", "5282"};
    for (const std::string_view probe : names) {
        if (name == probe) {
            return true;
        }
    }
    return false;
}

// Reads the first limit bytes of a regular file.
bool ReadHead(const std::string& path, size_t limit, std::string& content) {
    if (!IsPath(path)) {
        return false;
    }
    const Host::Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat attributes {};
    if (!file.IsOpen() || fstat(file.Get(), &attributes) != 0 || !S_ISREG(attributes.st_mode)) {
        return false;
    }
    return Host::ReadUpTo(file, limit, content) == 0;
}

// The path on one line of a shells file; empty if there is none.
std::string_view ShellOfLine(std::string_view line) {
    constexpr std::string_view blanks = " \t\v\f\r";
    line = line.substr(0, line.find('#'));
    const size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string_view::npos || line[begin] != '/' || line.find('\0') != std::string_view::npos) {
        return {};
    }
    return line.substr(begin, line.find_last_not_of(blanks) - begin + 1);
}

// The first letter of a line of ls -l.
char TypeLetter(unsigned int mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return '-';
        case S_IFDIR:
            return 'd';
        case S_IFLNK:
            return 'l';
        case S_IFCHR:
            return 'c';
        case S_IFBLK:
            return 'b';
        case S_IFIFO:
            return 'p';
        case S_IFSOCK:
            return 's';
        default:
            return '?';
    }
}

}  // namespace

namespace FileAttribute {

std::string GetBasename(const std::string& path) {
    if (path.empty()) {
        return ".";
    }
    const size_t last = path.find_last_not_of('/');
    if (last == std::string::npos) {
        return "/";
    }
    const size_t slash = path.rfind('/', last);
    const size_t begin = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(begin, last - begin + 1);
}

std::string GetRealLink(const std::string& path) {
    if (!IsPath(path)) {
        return {};
    }
    // The links of /proc do not report their length: only a target shorter than the buffer is known to be complete.
    for (std::string target(256, '\0'); target.size() <= maxLinkBytes; target.resize(target.size() * 2)) {
        const ssize_t length = readlink(path.c_str(), target.data(), target.size());
        if (length < 0) {
            return {};
        }
        if (static_cast<size_t>(length) < target.size()) {
            target.resize(static_cast<size_t>(length));
            return target;
        }
    }
    return {};
}

std::string GetRealPath(const std::string& path) {
    if (!IsPath(path)) {
        return {};
    }
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    return real ? std::string(real.get()) : std::string();
}

std::string StModeString(unsigned int mode) {
    // As in ls: a special bit replaces the execute bit, in lower case if that is set too.
    const auto execute = [mode](unsigned int bit, unsigned int special, char mark) {
        const bool isExecutable = (mode & bit) != 0;
        if ((mode & special) == 0) {
            return isExecutable ? 'x' : '-';
        }
        return isExecutable ? mark : static_cast<char>(mark - 'a' + 'A');
    };
    const auto flag = [mode](unsigned int bit, char mark) { return (mode & bit) != 0 ? mark : '-'; };
    return {TypeLetter(mode),
            flag(S_IRUSR, 'r'),
            flag(S_IWUSR, 'w'),
            execute(S_IXUSR, S_ISUID, 's'),
            flag(S_IRGRP, 'r'),
            flag(S_IWGRP, 'w'),
            execute(S_IXGRP, S_ISGID, 's'),
            flag(S_IROTH, 'r'),
            flag(S_IWOTH, 'w'),
            execute(S_IXOTH, S_ISVTX, 't')};
}

bool IsTemporaryFile(const std::string& path) {
    const std::string name = GetBasename(path);
    return HasTemporarySuffix(name) || IsRpmTemporary(name) || IsSedTemporary(name) || IsEmacsTemporary(name) ||
           IsViProbe(name);
}

}  // namespace FileAttribute

namespace FileOperation {

bool ParseShellsFile(std::set<std::string>& shells, const std::string& file) {
    std::string content;
    if (!ReadHead(file, maxShellsFileBytes, content)) {
        return false;
    }
    if (content.size() == maxShellsFileBytes) {
        // The limit may have cut the last line, and a cut path is another path.
        const size_t lastEnd = content.rfind('\n');
        content.resize(lastEnd == std::string::npos ? 0 : lastEnd);
    }
    const std::string_view text = content;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view shell = ShellOfLine(text.substr(begin, end - begin));
        if (!shell.empty()) {
            shells.emplace(shell);
        }
        begin = end + 1;
    }
    return true;
}

}  // namespace FileOperation

}  // namespace TavUtils
