// Names of users and groups. All functions may be called from any thread.
#pragma once

#include <string>

namespace TavUtils::UserInfo {

// The name that the host's databases give to the id; the id in decimal when they have none.
std::string GetUserNameByUid(unsigned int uid);
std::string GetGroupNameByGid(unsigned int gid);

}  // namespace TavUtils::UserInfo
