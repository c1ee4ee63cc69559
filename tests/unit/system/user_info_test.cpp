#include "agent/user_info.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <map>
#include <string>

namespace {

using TavUtils::UserInfo::GetGroupNameByGid;
using TavUtils::UserInfo::GetUserNameByUid;

TEST(UserInfo, ReturnsTheNameOfEveryListedId) {
    // A look-up finds the first entry of an id.
    std::map<uid_t, std::string> users;
    setpwent();
    while (const passwd* entry = getpwent()) {
        users.try_emplace(entry->pw_uid, entry->pw_name);
    }
    endpwent();
    ASSERT_EQ(users.count(0), 1U);
    for (const auto& [uid, name] : users) {
        EXPECT_EQ(GetUserNameByUid(uid), name);
    }

    std::map<gid_t, std::string> groups;
    setgrent();
    while (const group* entry = getgrent()) {
        groups.try_emplace(entry->gr_gid, entry->gr_name);
    }
    endgrent();
    ASSERT_EQ(groups.count(0), 1U);
    for (const auto& [gid, name] : groups) {
        EXPECT_EQ(GetGroupNameByGid(gid), name);
    }
}

TEST(UserInfo, ReturnsAnUnknownIdAsItsNumber) {
    EXPECT_EQ(GetUserNameByUid(3987654321U), "3987654321");
    EXPECT_EQ(GetGroupNameByGid(3987654321U), "3987654321");
    EXPECT_EQ(GetUserNameByUid(4294967295U), "4294967295");
}

}  // namespace
