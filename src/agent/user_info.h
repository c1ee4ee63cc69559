// Names of users and groups. Any thread.
#pragma once

#include <string>

namespace TavUtils::UserInfo {

// Return the name of the id in the host's databases, or the id in decimal if it has none.
std::string GetUserNameByUid(unsigned int uid);
std::string GetGroupNameByGid(unsigned int gid);

}  // namespace TavUtils::UserInfo
