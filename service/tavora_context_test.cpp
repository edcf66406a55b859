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
    CloseTavoraContext(&context);
    EXPECT_EQ(context.eutra_fd, -1);
    EXPECT_EQ(context.omadm_fd, -1);
}

TEST_F(TavoraContextTest, MissingOptionalObjectsLeaveMinusOne) {
    rt::test::DaemonOptions options;
    options.start = false;
    rt::test::DaemonFixture objects(options);  // no OMA-DM control object
    SlogCapture capture;
    TavoraContext context;
    ASSERT_EQ(SetupTavoraContext(&context), 0);
    EXPECT_EQ(context.omadm_fd, -1);
    EXPECT_GE(context.persist_fd, 0);
    char line[256];
    std::snprintf(line, sizeof line, "%30s : ERROR: Tavora: setupContext: open %s, error [%d]",
                  "SetupTavoraContext", "/pps/services/omadm/radio/control?wait", ENOENT);
    EXPECT_TRUE(capture.contains(line));
    CloseTavoraContext(&context);
}

// A status object someone else owns that the daemon cannot remove (it is
// not root here): start-up stops there with 22, the first object still open.
TEST_F(TavoraContextTest, SecondStatusObjectFailingStopsThere) {
    if (::getuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    rt::test::DaemonOptions options;
    options.start = false;
    options.start_devsim = false;
    rt::test::DaemonFixture objects(options);
    ASSERT_TRUE(objects.WriteObject(rt::test::kStatusUtraObject, ""));
    std::string socket = objects.broker().socket();
    ::chmod(socket.substr(0, socket.rfind('/')).c_str(), 0711);
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

struct HardwareCase {
    const char* name;
    const char* deviceinfo;  // attribute lines; nullptr: no object
    const char* stored;
    const char* logged;  // text after "GetHardwareID : ", or nullptr
};
// Shown by name in test listings instead of as raw bytes.
void PrintTo(const HardwareCase& c, std::ostream* os) {
    *os << c.name;
}

class HardwareIdTest : public TavoraContextTest,
                       public ::testing::WithParamInterface<HardwareCase> {};

TEST_P(HardwareIdTest, Reads) {
    rt::test::PpsBroker broker;
    const HardwareCase& c = GetParam();
    if (c.deviceinfo != nullptr) {
        rt::test::PpsClientConnection info(rt::test::kDeviceInfoObject, O_WRONLY | O_CREAT);
        ASSERT_TRUE(info.ok());
        if (*c.deviceinfo) {
            ASSERT_TRUE(info.Write(c.deviceinfo));
        }
    }
    // The write above went through its own connection: wait until it shows.
    for (int i = 0; i < 200 && c.deviceinfo && *c.deviceinfo; ++i) {
        rt::test::PpsClientConnection reader(rt::test::kDeviceInfoObject, O_RDONLY);
        if (reader.Read(1000).find(c.deviceinfo) != std::string::npos) break;
        ::usleep(5000);
    }
    SlogCapture capture;
    GetHardwareID();
    EXPECT_STREQ(hardware_id, c.stored);
    if (c.logged) {
        EXPECT_TRUE(capture.contains(Line("GetHardwareID", c.logged)))
            << ::testing::PrintToString(capture.texts());
    } else {
        EXPECT_TRUE(capture.texts().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HardwareIdTest,
    ::testing::Values(
        HardwareCase{"ten_characters_cut_to_nine", "HardwareID::0x53c0f9e4\n", "0x53c0f9e",
                     nullptr},
        HardwareCase{"upper_case_kept_as_written", "HardwareID::0X53C0F9E4\n", "0X53C0F9E",
                     nullptr},
        HardwareCase{"short_id_kept_whole", "HardwareID::0x5\n", "0x5", nullptr},
        HardwareCase{"no_hardware_id_attribute", "Serial::1234\n", "",
                     "Tavora: Error in pps_decoder_get_string to retrieve 'HardwareID' : 3\n"},
        HardwareCase{"number_typed_id", "HardwareID:n:5\n", "",
                     "Tavora: Error in pps_decoder_get_string to retrieve 'HardwareID' : 4\n"},
        HardwareCase{"no_deviceinfo_object", nullptr, "",
                     "Failed to opend /pps/system/nvram/deviceinfo(No such file or directory)"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(TavoraContextTest, ClearEnsValueWritesTheDeletion) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ClearEnsValue(fds[1]);
    char buffer[64] = {};
    ASSERT_GT(::read(fds[0], buffer, sizeof buffer - 1), 0);
    EXPECT_STREQ(buffer, "-ens_value\n");
    ClearEnsValue(-1);  // nothing to write to: nothing happens
    ::close(fds[0]);
    ::close(fds[1]);
}

}  // namespace
