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
    const char* name;
    const char* user;
    uid_t uid;
    gid_t gid;
    std::vector<gid_t> groups;
};
// Shown by name in test listings instead of as raw bytes.
void PrintTo(const DropCase& c, std::ostream* os) {
    *os << c.name;
}

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

class DropToUserTest : public ::testing::TestWithParam<DropCase> {};

TEST_P(DropToUserTest, BecomesTheUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to change user";
    EXPECT_EXIT(DropAndCheck(GetParam()), ::testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DropToUserTest,
    ::testing::Values(DropCase{"uid_only_keeps_group", "1000", 1000, 0, {}},
                      DropCase{"uid_in_hex", "0x3e8", 1000, 0, {}},
                      DropCase{"uid_in_octal", "01750", 1000, 0, {}},
                      DropCase{
                          "uid_and_gid_clear_supplementary_groups", "1000:1000", 1000, 1000, {}},
                      DropCase{"supplementary_groups", "1000:1000,20,30", 1000, 1000, {20, 30}},
                      DropCase{"user_name", "nobody", 65534, 65534, {65534}}),
    [](const auto& info) { return std::string(info.param.name); });

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
