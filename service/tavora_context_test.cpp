// The context on a real broker, in this process: what SetupTavoraContext
// opens, the hardware ID, the ENS deletion and closing.
#include "service/tavora_context.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "platform/pps/pps_client.h"
#include "platform/qnx/slogf.h"
#include "service/pps_server.h"
#include "service/tavora_strings.h"
#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"

namespace {

using ::testing::HasSubstr;

class TavoraContextTest : public ::testing::Test {
  protected:
    void SetUp() override { hardware_id[0] = '\0'; }
    void TearDown() override { hardware_id[0] = '\0'; }
};

std::string Line(const char* name, const std::string& rest) {
    char line[512];
    std::snprintf(line, sizeof line, "%30s : %s", name, rest.c_str());
    return line;
}

TEST_F(TavoraContextTest, OpensEverythingCloseOnExecAndReadsHardwareId) {
    rt::test::DaemonOptions options;
    options.create_omadm_control = true;
    options.start = false;
    rt::test::DaemonFixture objects(options);
    TavoraContext context;
    ASSERT_EQ(SetupTavoraContext(&context), 0);
    for (int fd : {context.eutra_fd, context.utra_fd, context.geran_fd, context.cdma_fd,
                   context.data_fd, context.config_fd, context.persist_fd, context.omadm_fd}) {
        ASSERT_GE(fd, 0);
        EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
    }
    EXPECT_STREQ(hardware_id, "0x52c0f9e");  // nine characters of ten
    // The server object too: no shell command the daemon runs inherits it.
    PPSServer server;
    ASSERT_EQ(server.pps_create_server_object(kControlServerPath), 0);
    EXPECT_NE(::fcntl(server.fd(), F_GETFD) & FD_CLOEXEC, 0);
    CloseTavoraContext(&context);
    EXPECT_EQ(context.eutra_fd, -1);
    EXPECT_EQ(context.omadm_fd, -1);
}

// A status object someone else owns that the daemon cannot remove (it is
// not root here): start-up stops there with 22, the first object still open.
TEST_F(TavoraContextTest, SecondStatusObjectFailingStopsThere) {
    if (::getuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    rt::test::DaemonOptions options;
    options.start = false;
    options.start_devsim = false;
    // Nobody makes diag/ (with diag/config), so that it may create there.
    options.create_config = options.create_status_persistent = false;
    rt::test::DaemonFixture objects(options);
    std::string socket = objects.broker().socket();
    ::chmod(socket.substr(0, socket.rfind('/')).c_str(), 0711);
    pid_t maker = ::fork();
    if (maker == 0)
        ::_exit(::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0 &&
                        pps_open(rt::test::kConfigObject, O_WRONLY | O_CREAT, 0660) >= 0
                    ? 0
                    : 1);
    int made = -1;
    ASSERT_EQ(::waitpid(maker, &made, 0), maker);
    ASSERT_EQ(made, 0) << "nobody could not make diag/";
    ASSERT_TRUE(objects.WriteObject(rt::test::kStatusUtraObject, ""));
    pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(255);
        TavoraContext context;
        int failures = SetupTavoraContext(&context) == 22 ? 0 : 1;
        if (context.eutra_fd < 0) failures |= 2;  // the first stays open
        if (context.utra_fd != -1 || context.geran_fd != -1 || context.config_fd != -1 ||
            context.persist_fd != -1)
            failures |= 4;
        ::_exit(failures);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    struct stat info {};  // still root's: a daemon that is not root cannot remove it
    ASSERT_EQ(pps_stat(rt::test::kStatusUtraObject, &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
}

// deviceinfo as written, what GetHardwareID keeps, and what it logs after
// "GetHardwareID : " (null: nothing). A missing object is a daemon process
// test; a ten-character ID cut to nine is the test above.
struct HardwareCase {
    const char* deviceinfo;
    const char* stored;
    const char* logged;
};

TEST_F(TavoraContextTest, HardwareIdReadsOfEveryShape) {
    const HardwareCase cases[] = {
        {"HardwareID::0X53C0F9E4\n", "0X53C0F9E", nullptr},  // case kept as written
        {"HardwareID::0x5\n", "0x5", nullptr},
        {"Serial::1234\n", "",
         "Tavora: Error in pps_decoder_get_string to retrieve 'HardwareID' : 3\n"},
        {"HardwareID:n:5\n", "",
         "Tavora: Error in pps_decoder_get_string to retrieve 'HardwareID' : 4\n"},
    };
    for (const HardwareCase& c : cases) {
        rt::test::DaemonOptions options;
        options.start = false;
        options.start_devsim = false;
        options.create_deviceinfo = false;
        rt::test::DaemonFixture objects(options);
        ASSERT_TRUE(objects.WriteObject(rt::test::kDeviceInfoObject, c.deviceinfo));
        hardware_id[0] = '\0';
        SlogCapture capture;
        GetHardwareID();
        EXPECT_STREQ(hardware_id, c.stored) << c.deviceinfo;
        if (c.logged) {
            EXPECT_TRUE(capture.contains(Line("GetHardwareID", c.logged)))
                << ::testing::PrintToString(capture.texts());
        } else {
            EXPECT_TRUE(capture.texts().empty()) << ::testing::PrintToString(capture.texts());
        }
    }
}

}  // namespace
