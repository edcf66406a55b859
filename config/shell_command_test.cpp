// The shell commands of the tethering action: what they return, and the
// clean signal state every shell starts with whatever the daemon blocks.
#include "config/shell_command.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "testsupport/child_process.h"

namespace {

using rt::test::ReadFile;

// The daemon blocks its termination signals around the poll loop; this
// test blocks them too and ignores two more. A shell started with them
// blocked or ignored would pass that on to every tool through exec.
TEST(ShellCommandTest, ShellStartsWithDefaultSignalsAndAnEmptyMask) {
    sigset_t blocked;
    sigset_t saved_mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGHUP);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGINT);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &saved_mask), 0);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction saved_usr1 {};
    struct sigaction saved_pipe {};
    sigaction(SIGUSR1, &ignore, &saved_usr1);
    sigaction(SIGPIPE, &ignore, &saved_pipe);

    rt::test::TempDir dir;
    std::string out = dir.file("signals");
    int status = RunShellCommand(("grep -E '^Sig(Blk|Ign):' /proc/self/status >" + out).c_str());

    sigaction(SIGUSR1, &saved_usr1, nullptr);
    sigaction(SIGPIPE, &saved_pipe, nullptr);
    pthread_sigmask(SIG_SETMASK, &saved_mask, nullptr);

    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    // SigIgn's low 32 bits are signals 1 to 32. The C library keeps its two
    // internal signals (32 and 33, never used by a program) ignored in the
    // children it spawns, as system does; every other signal is default.
    std::string text = ReadFile(out);
    EXPECT_EQ(text.substr(0, text.find('\n') + 1), "SigBlk:\t0000000000000000\n") << text;
    size_t ignored = text.find("SigIgn:\t");
    ASSERT_NE(ignored, std::string::npos) << text;
    unsigned long long mask = std::stoull(text.substr(ignored + 8, 16), nullptr, 16);
    EXPECT_EQ(mask & 0x7fffffffULL, 0ULL) << text;  // signals 1 to 31
}

TEST(ShellCommandTest, AFailingCommandIsItsExitStatusNotAShellFailure) {
    int status = RunShellCommand("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    // A tool that is not there: the shell ran, so this is not -1.
    status = RunShellCommand("no_such_tool_anywhere_here");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 127);
    EXPECT_EQ(RunShellCommand(nullptr), -1);
}

TEST(ShellCommandTest, PipeReadsTheOutputAndCloseWaitsForTheShell) {
    ShellPipe pipe;
    ASSERT_TRUE(OpenShellPipe("echo first; echo second; exit 4", &pipe));
    std::string output;
    char buffer[64];
    ssize_t n;
    while ((n = ::read(pipe.fd, buffer, sizeof buffer)) > 0)
        output.append(buffer, static_cast<size_t>(n));
    EXPECT_EQ(output, "first\nsecond\n");
    int status = CloseShellPipe(&pipe);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 4);
    EXPECT_EQ(pipe.fd, -1);
    EXPECT_EQ(CloseShellPipe(&pipe), -1);  // closed once only
}

TEST(ShellCommandTest, ThePipeIsNotHandedToOtherCommands) {
    ShellPipe pipe;
    ASSERT_TRUE(OpenShellPipe("true", &pipe));  // our reading end stays open until closed
    rt::test::TempDir dir;
    std::string out = dir.file("fds");
    std::string check = "test -e /proc/self/fd/" + std::to_string(pipe.fd) + " && echo open >" +
                        out + " || echo closed >" + out;
    RunShellCommand(check.c_str());
    CloseShellPipe(&pipe);
    EXPECT_EQ(ReadFile(out), "closed\n");
}

}  // namespace
