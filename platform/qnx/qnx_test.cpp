// waitfor against the file system and the broker, and strnicmp's
// comparisons.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>

#include "platform/pps/pps_client.h"
#include "platform/qnx/strnicmp.h"
#include "platform/qnx/waitfor.h"
#include "testsupport/child_process.h"

namespace {

TEST(Waitfor, FileThatAppearsWhileWaiting) {
    rt::test::TempDir dir;
    std::string path = dir.file("late");
    std::thread maker([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::ofstream(path) << "x";
    });
    EXPECT_EQ(waitfor(path.c_str(), 5000, 10), 0);
    maker.join();
}

TEST(Waitfor, MissingPathTimesOut) {
    rt::test::TempDir dir;
    errno = 0;
    EXPECT_EQ(waitfor(dir.file("never").c_str(), 50, 10), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST(Waitfor, PpsObjectIsLookedUpThroughTheBroker) {
    rt::test::PpsBroker broker;
    const char* path = "/pps/services/test/object";
    EXPECT_EQ(waitfor(path, 30, 10), -1);
    int fd = pps_open(path, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(waitfor(path, 1000, 10), 0);
    ::close(fd);
}

TEST(Strnicmp, ComparesWithoutCaseUpToTheLimit) {
    struct Case {
        const char* a;
        const char* b;
        size_t n;
        int sign;
    } cases[] = {
        {"0x52C0F9E4", "0x52c0f9e4", 10, 0},
        {"abcX", "ABCy", 3, 0},
        {"abcX", "ABCy", 4, -1},
        {"abd", "ABC", 3, 1},
        {"ab", "abc", 3, -1},
        {"", "", 5, 0},
        {"abc", "xyz", 0, 0},
    };
    for (const Case& c : cases) {
        int r = strnicmp(c.a, c.b, c.n);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << c.a << " vs " << c.b << " n=" << c.n;
    }
}

}  // namespace
