// radio_tavora as a real process on a real broker: start-up order and
// log lines, the objects it creates and clears, requests through the
// server object, and how it ends, its broker's going away included.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/pps/pps_client.h"
#include "testsupport/daemon_fixture.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using ::testing::HasSubstr;
using ::testing::Not;

// The slog lines of the daemon's standard error, prefix removed, in order.
std::vector<std::string> SlogTexts(const std::string& stderr_text) {
    std::vector<std::string> texts;
    std::istringstream in(stderr_text);
    const std::string prefix = "slog 10000 6 ";
    for (std::string line; std::getline(in, line);)
        if (line.rfind(prefix, 0) == 0) texts.push_back(line.substr(prefix.size()));
    return texts;
}

std::string MainLine(const std::string& text) {
    char line[256];
    std::snprintf(line, sizeof line, "%30s : Tavora: %s", "main", text.c_str());
    return line;
}

// Index of the first slog line containing `needle`, or -1.
int IndexOf(const std::vector<std::string>& texts, const std::string& needle) {
    for (size_t i = 0; i < texts.size(); ++i)
        if (texts[i].find(needle) != std::string::npos) return static_cast<int>(i);
    return -1;
}

// One start with an unknown option and no hardware id: the start-up lines
// in order, each of the two logged, and the start going on.
TEST(DaemonProcessTest, StartsWithItsLogLinesInOrder) {
    DaemonOptions options;
    options.create_omadm_control = true;
    options.create_deviceinfo = false;
    options.args = {"-x"};
    DaemonFixture fixture(options);
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    std::vector<std::string> texts = SlogTexts(fixture.daemon().Stderr());
    int config_line = IndexOf(texts, MainLine("calling function to initialize callback function "
                                              "for user configure screen"));
    int rat_line = IndexOf(
        texts,
        MainLine("calling function to initialize callback function for configure rat state"));
    int started_line = IndexOf(texts, MainLine("tavora_pps started successfully."));
    ASSERT_GE(config_line, 0);
    EXPECT_GT(rat_line, config_line);
    EXPECT_GT(started_line, rat_line);
    EXPECT_EQ(IndexOf(texts, "Dropping to user"), -1);  // no -U, no privilege change
    EXPECT_EQ(IndexOf(texts, "setupContext"), -1);      // every object opened
    EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr(MainLine("Unknown command line option: ?")));
    char line[256];
    std::snprintf(line, sizeof line, "%30s : Failed to opend /pps/system/nvram/deviceinfo(%s)",
                  "GetHardwareID", strerror(ENOENT));
    EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr(line));
}

TEST(DaemonProcessTest, StatusObjectsCreatedAndEmptied) {
    DaemonOptions options;
    options.start = false;
    DaemonFixture fixture(options);
    const char* statuses[] = {rt::test::kStatusEutraObject, rt::test::kStatusUtraObject,
                              rt::test::kStatusGeranObject, rt::test::kStatus3gpp2Object,
                              rt::test::kStatusDataObject};
    // Three left from an earlier run, two not there at all.
    for (const char* status : {statuses[0], statuses[2], statuses[4]}) {
        ASSERT_TRUE(fixture.WriteObject(status, "left_over::from an earlier run\n")) << status;
        ASSERT_THAT(fixture.ReadObject(status), HasSubstr("left_over")) << status;
    }
    EXPECT_FALSE(pps_exists(statuses[1]));

    ASSERT_TRUE(fixture.Start()) << fixture.daemon().Stderr();
    for (const char* status : statuses) {
        EXPECT_TRUE(pps_exists(status)) << status;
        EXPECT_THAT(fixture.ReadObject(status), Not(HasSubstr("left_over"))) << status;
    }
}

TEST(DaemonProcessTest, TerminationSignalsEndWithStatusZero) {
    char line[128];
    std::snprintf(line, sizeof line, "%30s : Tavora: radio_tavora PPS is terminated.", "Cleanup");
    for (int signal_number : {SIGTERM, SIGINT, SIGHUP}) {
        DaemonFixture fixture;
        ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
        EXPECT_EQ(fixture.Stop(signal_number), 0) << sigabbrev_np(signal_number);
        EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr(line)) << sigabbrev_np(signal_number);
    }
}

// When its broker goes away the daemon ends with status 1 at once, so that
// a supervisor starts it again once the broker is back.
TEST(DaemonProcessTest, BrokerGoneEndsWithStatusOne) {
    for (int signal_number : {SIGKILL, SIGTERM}) {
        DaemonFixture fixture;
        ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
        ASSERT_TRUE(fixture.broker().process().Signal(signal_number));
        EXPECT_EQ(fixture.daemon().Wait(10000), 1) << fixture.daemon().Stderr();
        EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr("BAD pps file descriptor!"));
    }
}

// A start that cannot go on ends with its status and says why.
TEST(DaemonProcessTest, FailedStartsEndWithTheirStatus) {
    struct Case {
        std::vector<std::string> args;
        bool create_config;
        int status;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {{"-U", "no_such_user_here"},
         true,
         1,
         {MainLine("Dropping to user 'no_such_user_here'"),
          MainLine("Failed Dropping to user 'no_such_user_here'")}},
        {{}, false, 22, {"setupContext: open /pps/services/radioctrl/modem0/diag/config?delta"}},
    };
    for (const Case& c : cases) {
        DaemonOptions options;
        options.args = c.args;
        options.create_config = c.create_config;
        options.start = false;
        DaemonFixture fixture(options);
        EXPECT_FALSE(fixture.Start());
        EXPECT_EQ(fixture.daemon().Wait(), c.status);
        for (const std::string& line : c.lines)
            EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr(line));
    }
}

TEST(DaemonProcessTest, DropsToNumericUserWhenRoot) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to change user";
    DaemonOptions options;
    options.args = {"-U", "65534:65534"};
    DaemonFixture fixture(options);
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    struct stat st {};
    ASSERT_EQ(::stat(("/proc/" + std::to_string(fixture.daemon().pid())).c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 65534u);
    // The drop comes after the watchers are added and before the start line.
    std::vector<std::string> texts = SlogTexts(fixture.daemon().Stderr());
    int rat_line = IndexOf(
        texts,
        MainLine("calling function to initialize callback function for configure rat state"));
    int drop_line = IndexOf(texts, MainLine("Dropping to user '65534:65534'"));
    int started_line = IndexOf(texts, MainLine("tavora_pps started successfully."));
    ASSERT_GE(rat_line, 0);
    EXPECT_GT(drop_line, rat_line);
    EXPECT_GT(started_line, drop_line);
    EXPECT_EQ(fixture.Stop(SIGTERM), 0);
}

TEST(DaemonProcessTest, MissingPersistentStatusCostsTheWaitThenGoesOn) {
    DaemonOptions options;
    options.create_status_persistent = false;
    options.start = false;
    DaemonFixture fixture(options);
    auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(fixture.Start()) << fixture.daemon().Stderr();
    auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(9500));  // the 10 s wait is a floor, not a race
    char line[256];
    std::snprintf(line, sizeof line, "%30s : ERROR: Tavora: setupContext: open %s, error [%d]",
                  "SetupTavoraContext", "/pps/services/radioctrl/modem0/status_persistent?delta",
                  ENOENT);
    EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr(line));
    // Serving goes on with persist_fd -1: a name no report has is warned
    // about, then logged by the default handler, and gets no reply.
    EXPECT_EQ(fixture.Request("stillhere", "1", std::nullopt, 500), "");
    ASSERT_TRUE(fixture.daemon().WaitForStderr("default handler for msg: stillhere"));
    std::snprintf(line, sizeof line, "slog 10000 6 %30s : Tavora: default handler for msg: %s",
                  "Tavora_Default", "stillhere");
    std::string err = fixture.daemon().Stderr();
    EXPECT_THAT(err, HasSubstr(line));
    EXPECT_LT(err.find("Unhandled message stillhere"), err.find(line));
}

// Another local user (nobody) tries what a hostile one would: a forged
// status object made first, open to all; an object squatting under a status
// name, which would make it a directory; wiping or taking over diag/config.
// diag/ is root's (made with diag/config) and keeps its owner across broker
// restarts, so none of it goes through, and the daemon starts every time.
TEST(DaemonProcessTest, ALocalUserCannotForgeSquatOrWipeAcrossBrokerRestarts) {
    if (::getuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    DaemonOptions options;
    options.start = false;
    options.start_devsim = false;
    options.create_config = false;
    DaemonFixture fixture(options);
    const std::string config = rt::test::kConfigObject;
    const std::string utra = rt::test::kStatusUtraObject;
    const std::string eutra = rt::test::kStatusEutraObject;
    // The screen makes diag/config as ppsctl does.
    rt::test::ChildProcess ppsctl({rt::test::BinPath("ppsctl"), "write", config, "diaglogmask::0"},
                                  {fixture.broker().env()});
    ASSERT_EQ(ppsctl.Wait(), 0) << ppsctl.Stderr();
    // What nobody squatted under a status name in a store from before
    // directories had records: status_eutra/ becomes nobody's, diag/ root's.
    std::string squat = eutra + "/squat", file;
    for (char c : squat) file += c == '/' ? std::string("%2F") : std::string(1, c);
    std::ofstream(fixture.broker().store() + "/" + file)
        << "ppsd-object 1\nowner 65534 65534 666\npath " << squat << "\n";
    fixture.broker().Restart();
    std::string dir = fixture.broker().socket().substr(0, fixture.broker().socket().rfind('/'));
    ::chmod(dir.c_str(), 0711);  // nobody may reach the broker's socket

    // What nobody does; each bit of the result is an attempt that went through.
    auto as_nobody = [&](bool squat) {
        pid_t pid = ::fork();
        if (pid == 0) {
            if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
                ::_exit(255);
            int done = 0;
            if (squat) {  // before the daemon's first start
                if (pps_open(utra.c_str(), O_RDWR | O_CREAT, 0666) >= 0) done |= 1;
                if (pps_open((utra + "/squat").c_str(), O_WRONLY | O_CREAT, 0666) >= 0) done |= 2;
                ::_exit(errno == EACCES ? done : 254);
            }
            if (pps_open(utra.c_str(), O_WRONLY) >= 0) done |= 2;
            if (pps_open(utra.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666) >= 0) done |= 4;
            if (pps_unlink(utra.c_str()) == 0) done |= 8;
            if (pps_open((utra + "/squat").c_str(), O_WRONLY | O_CREAT, 0666) >= 0) done |= 16;
            if (pps_open((config + "2").c_str(), O_WRONLY | O_CREAT, 0666) >= 0) done |= 16;
            for (const char* option : {"?critical", "?nopersist", ""})
                if (pps_open((config + option).c_str(), O_RDONLY) >= 0) done |= 32;
            if (pps_open(config.c_str(), O_WRONLY | O_TRUNC) >= 0) done |= 64;
            if (pps_unlink(config.c_str()) == 0) done |= 128;
            ::_exit(done);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    ASSERT_EQ(as_nobody(true), 0);
    // A status object of nobody's, as a store from before owners were kept
    // could hold it: the daemon refuses it and makes its own.
    std::string forged;
    for (char c : utra) forged += c == '/' ? std::string("%2F") : std::string(1, c);
    std::ofstream(fixture.broker().store() + "/" + forged)
        << "ppsd-object 1\nowner 65534 65534 644\npath " << utra << "\n";
    fixture.broker().Restart();
    ::chmod(dir.c_str(), 0711);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ASSERT_TRUE(fixture.Start()) << fixture.daemon().Stderr();
        if (round == 0) {
            EXPECT_THAT(fixture.daemon().Stderr(),
                        HasSubstr(squat + " lies where the daemon's object goes (owner 65534)"));
            EXPECT_THAT(fixture.daemon().Stderr(),
                        HasSubstr("refused " + utra +
                                  ": owner 65534 mode 644, not the daemon's: "
                                  "removed"));
        } else {
            EXPECT_THAT(fixture.daemon().Stderr(), Not(HasSubstr("refused")));
        }
        struct stat info {};
        ASSERT_EQ(pps_stat(utra.substr(0, utra.rfind('/')).c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, 0u);
        EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFDIR | 0775))
            << "diag/ as diag/config made it";
        ASSERT_EQ(pps_stat(utra.c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, 0u);
        EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFREG | 0640));
        EXPECT_EQ(fixture.ReadObject(utra), "@status_utra\n");
        EXPECT_EQ(as_nobody(false), 0);
        EXPECT_EQ(fixture.ReadObject(config), "@config\ndiaglogmask::0\n");
        EXPECT_EQ(fixture.Stop(SIGTERM), 0);
        fixture.broker().Restart();
        ::chmod(dir.c_str(), 0711);
        EXPECT_EQ(as_nobody(false), 0) << "with the daemon down after a broker restart";
    }
}

}  // namespace
