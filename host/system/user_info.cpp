#include "agent/user_info.h"

#include <grp.h>
#include <pwd.h>
#include <sys/types.h>

#include <cerrno>
#include <vector>

namespace TavUtils::UserInfo {

namespace {

// A group's record lists all its members. A larger record is not worth the memory for one name.
constexpr size_t maxRecordBytes = 4 * 1024 * 1024;

}  // namespace

std::string GetUserNameByUid(unsigned int uid) {
    std::vector<char> buffer(1024);
    while (buffer.size() <= maxRecordBytes) {
        passwd record{};
        passwd* found = nullptr;
        const int error = getpwuid_r(static_cast<uid_t>(uid), &record, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error == EINTR) {
            continue;
        }
        if (error == 0 && found != nullptr && found->pw_name != nullptr && found->pw_name[0] != '\0') {
            return found->pw_name;
        }
        break;
    }
    return std::to_string(uid);
}

std::string GetGroupNameByGid(unsigned int gid) {
    std::vector<char> buffer(1024);
    while (buffer.size() <= maxRecordBytes) {
        group record{};
        group* found = nullptr;
        const int error = getgrgid_r(static_cast<gid_t>(gid), &record, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error == EINTR) {
            continue;
        }
        if (error == 0 && found != nullptr && found->gr_name != nullptr && found->gr_name[0] != '\0') {
            return found->gr_name;
        }
        break;
    }
    return std::to_string(gid);
}

}  // namespace TavUtils::UserInfo
