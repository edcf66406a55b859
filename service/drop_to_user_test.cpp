// DropToUser: each case runs in a child process (a changed user cannot be
// changed back), which reports what it became through its exit status.
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "service/tavora_context.h"

namespace {

struct DropCase {
    const char* user;
    uid_t uid;
    gid_t gid;
    std::vector<gid_t> groups;
};

// Exits 0 when the drop succeeded and left exactly these ids, else 1..4.
void DropAndCheck(const DropCase& c) {
    if (DropToUser(c.user) != 0) ::_exit(1);
    if (::getuid() != c.uid || ::geteuid() != c.uid) ::_exit(2);
    if (::getgid() != c.gid) ::_exit(3);
    gid_t groups[64];
    int n = ::getgroups(64, groups);
    if (n < 0 || std::vector<gid_t>(groups, groups + n) != c.groups) ::_exit(4);
    ::_exit(0);
}

TEST(DropToUserTest, BecomesTheUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to change user";
    const DropCase cases[] = {
        {"1000", 1000, 0, {}},  // uid only: the group stays
        {"0x3e8", 1000, 0, {}},
        {"01750", 1000, 0, {}},
        {"1000:1000", 1000, 1000, {}},  // supplementary groups cleared
        {"1000:1000,20,30", 1000, 1000, {20, 30}},
        {"nobody", 65534, 65534, {65534}},
    };
    for (const DropCase& c : cases)
        EXPECT_EXIT(DropAndCheck(c), ::testing::ExitedWithCode(0), "") << c.user;
}

TEST(DropToUserNameTest, UnknownNameFailsWithEinval) {
    errno = 0;
    EXPECT_EQ(DropToUser("no_such_user_in_passwd"), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(DropToUserNameTest, FailingSetuidReportsMinusOne) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to change user";
    // Once dropped, going back to root is refused: the first failing call wins.
    EXPECT_EXIT(
        {
            if (DropToUser("1000") != 0) ::_exit(1);
            ::_exit(DropToUser("0") == -1 && errno == EPERM ? 0 : 2);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
