// The client open against a real broker process.
#include "platform/pps/pps_client.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "testsupport/child_process.h"

namespace {

TEST(PpsSocketPath, EnvironmentElseDefault) {
    const char* saved = std::getenv("PPS_SOCKET");
    std::string keep = saved ? saved : "";
    ::setenv("PPS_SOCKET", "/run/x.sock", 1);
    EXPECT_EQ(pps_socket_path(), "/run/x.sock");
    ::setenv("PPS_SOCKET", "", 1);
    EXPECT_EQ(pps_socket_path(), kPpsDefaultSocket);
    ::unsetenv("PPS_SOCKET");
    EXPECT_EQ(pps_socket_path(), kPpsDefaultSocket);
    if (saved) ::setenv("PPS_SOCKET", keep.c_str(), 1);
}

class PpsClientTest : public ::testing::Test {
  protected:
    rt::test::PpsBroker broker_;
};

TEST_F(PpsClientTest, DescriptorIsAMessageSocketNonBlockingUnlessWait) {
    int plain = pps_open("/pps/c/o", O_RDWR | O_CREAT, 0644);
    ASSERT_GE(plain, 0) << std::strerror(errno);
    EXPECT_NE(::fcntl(plain, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(::fcntl(plain, F_GETFD) & FD_CLOEXEC, 0);
    int waiting = pps_open("/pps/c/o?wait", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(waiting, 0);
    EXPECT_EQ(::fcntl(waiting, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(waiting, F_GETFD) & FD_CLOEXEC, 0);
    int forced = pps_open("/pps/c/o?wait", O_RDONLY | O_NONBLOCK);
    ASSERT_GE(forced, 0);
    EXPECT_NE(::fcntl(forced, F_GETFL) & O_NONBLOCK, 0);

    // One write is one message: two writes are read as two.
    int reader = pps_open("/pps/c/o?delta", O_RDONLY);
    char buffer[256];
    pollfd entry{reader, POLLIN, 0};
    ASSERT_EQ(::poll(&entry, 1, 5000), 1);
    EXPECT_EQ(::read(reader, buffer, sizeof buffer), 3);  // "@o\n"
    ASSERT_EQ(::write(plain, "a::1\n", 5), 5);
    ASSERT_EQ(::write(plain, "b::2\n", 5), 5);
    ASSERT_EQ(::poll(&entry, 1, 5000), 1);
    EXPECT_EQ(::read(reader, buffer, sizeof buffer), 8);  // "@o\na::1\n"
    ASSERT_EQ(::poll(&entry, 1, 5000), 1);
    EXPECT_EQ(::read(reader, buffer, sizeof buffer), 8);  // "@o\nb::2\n"
    for (int fd : {plain, waiting, forced, reader}) ::close(fd);
}

TEST_F(PpsClientTest, OptionsDoNotTakePartInLookup) {
    int fd = pps_open("/pps/c/status?nopersist,critical", O_RDWR | O_CREAT | O_TRUNC, 0640);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(pps_exists("/pps/c/status"));
    EXPECT_TRUE(pps_exists("/pps/c/status?delta"));
    EXPECT_TRUE(pps_exists("/pps/c"));
    EXPECT_FALSE(pps_exists("/pps/c/other?delta"));
    int again = pps_open("/pps/c/status?delta,wait", O_RDONLY);
    EXPECT_GE(again, 0);
    ::close(again);
    ::close(fd);
}

TEST_F(PpsClientTest, ListShowsObjectsAndDirectories) {
    for (const char* path : {"/pps/l/b", "/pps/l/a/x", "/pps/l/a/y"})
        ::close(pps_open(path, O_RDWR | O_CREAT, 0644));
    std::vector<std::string> entries;
    ASSERT_EQ(pps_list("/pps/l", &entries), 0);
    EXPECT_EQ(entries, (std::vector<std::string>{"a/", "b"}));
    EXPECT_EQ(pps_list("/pps/l/b", &entries), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(pps_list("/pps/none", &entries), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(PpsClientTest, NullPathIsEfault) {
    errno = 0;
    EXPECT_EQ(pps_open(nullptr, O_RDONLY), -1);
    EXPECT_EQ(errno, EFAULT);
}

}  // namespace
