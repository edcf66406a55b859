// The poll loop, the server read and the reply, with a socketpair in place
// of the server object (one message per write, like the broker's sockets).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "service/pps_server.h"
#include "testsupport/message_pair.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// Everything the handlers and watchers saw, in order.
std::vector<std::string> events;

void RecordRequest(PPSServer*, void*, uint64_t client_id, const char* msg, const char* id,
                   const char* dat) {
    events.push_back("request " + std::to_string(client_id) + " " + msg + " " + id + " " +
                     (dat ? dat : "(null)"));
}

// Reads what is pending on its descriptor, as the real callbacks do.
void RecordWatcher(PPSServer*, void* arg, int fd) {
    char buffer[256];
    [[maybe_unused]] ssize_t n = ::read(fd, buffer, sizeof buffer);
    events.push_back(std::string("watcher ") + static_cast<const char*>(arg));
}

// The broker's sockets block; one message per write.
struct SocketPair : rt::test::MessagePair {
    SocketPair() : MessagePair(true) {}
    void Send(const std::string& text) const { ASSERT_TRUE(MessagePair::Send(text)); }
    std::string Receive() const {
        std::vector<std::string> messages = rt::test::DrainMessages(theirs, 1000);
        return messages.empty() ? "" : messages.front();
    }
};

class PPSLoopTest : public ::testing::Test {
  protected:
    void SetUp() override {
        events.clear();
        ASSERT_GE(server_pair.ours, 0);
        server.PPSUseDescriptor(server_pair.ours);
        server.PPSAddCommand("radiostats", RecordRequest, nullptr);
    }
    // One pass as PPSRun makes it: fill the table, poll, handle.
    void RunOnePass() {
        std::vector<pollfd> table(1 + server.watchers().size());
        server.PPSFillPollTable(table.data(), table.size());
        ASSERT_GT(::poll(table.data(), table.size(), 1000), 0);
        server.PPSRunOnce(table.data(), table.size());
    }

    SocketPair server_pair;
    PPSServer server;
};

// A request padded with an ignored attribute to exactly `size` bytes.
std::string RequestOfSize(size_t size) {
    std::string head = "@control.5\nmsg::radiostats\nid::17\npad::";
    std::string text = head + std::string(size - head.size() - 1, 'x') + "\n";
    EXPECT_EQ(text.size(), size);
    return text;
}

// The read buffer holds 1023 bytes: a longer message is cut there, with
// a warning, and what the cut leaves is parsed.
struct SizeCase {
    std::string text;
    bool warned;
    size_t requests;
};

TEST_F(PPSLoopTest, MessagesPastTheBufferAreCutAt1023Bytes) {
    const std::string head = "@control.5\nmsg::radiostats\npad::";
    const SizeCase cases[] = {
        {RequestOfSize(1023), false, 1},
        // The request's own attributes come first: the cut drops only the
        // padding's newline.
        {RequestOfSize(1024), true, 1},
        // The id comes after 1023 bytes: what is parsed has no id.
        {head + std::string(1023 - head.size(), 'x') + "\nid::17\n", true, 0},
    };
    for (const SizeCase& c : cases) {
        events.clear();
        server_pair.Send(c.text);
        testing::internal::CaptureStderr();
        EXPECT_EQ(server.PPSRead(server.fd()), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr().find("read larger than buffer 1024") !=
                      std::string::npos,
                  c.warned)
            << c.text.size();
        EXPECT_EQ(events.size(), c.requests) << c.text.size();
    }
}

TEST_F(PPSLoopTest, ReadThatWouldBlockOrFindsNothingProcessesNothing) {
    ASSERT_EQ(::fcntl(server.fd(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(server.PPSRead(server.fd()), EAGAIN);
    ::shutdown(server_pair.theirs, SHUT_WR);
    EXPECT_EQ(server.PPSRead(server.fd()), 0);
    EXPECT_TRUE(events.empty());
}

// A bad descriptor and any other read error end the daemon with status 1
// and the error's line.
TEST(PPSReadDeathTest, ReadErrorsEndWithStatus1) {
    PPSServer server;
    int dir = ::open("/", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(dir, 0);
    EXPECT_EXIT(server.PPSRead(-1), ::testing::ExitedWithCode(1),
                HasSubstr("BAD pps file descriptor!"));
    EXPECT_EXIT(server.PPSRead(dir), ::testing::ExitedWithCode(1),
                HasSubstr("read pps errno " + std::to_string(EISDIR)));
    ::close(dir);
}

// A watcher whose descriptor stays readable keeps poll from ever waiting; a
// termination signal must still end the loop. The alarm bounds the wait:
// a loop that never lets the signal in dies of it instead of exiting 0.
void RaiseTerminationOnce(PPSServer*, void*, int) {
    static bool raised = false;
    if (!raised) ::kill(::getpid(), SIGTERM);
    raised = true;
}

void ExitZeroOnTermination(int) {
    ::_exit(0);
}

TEST(PPSRunDeathTest, TerminationSignalEndsLoopWhileADescriptorStaysReady) {
    EXPECT_EXIT(
        {
            ::alarm(10);
            std::signal(SIGTERM, ExitZeroOnTermination);
            sigset_t termination;
            sigemptyset(&termination);
            sigaddset(&termination, SIGTERM);
            pthread_sigmask(SIG_BLOCK, &termination, nullptr);
            SocketPair server_pair;
            int always_ready[2];
            if (::pipe(always_ready) != 0 || ::write(always_ready[1], "x", 1) != 1) ::_exit(3);
            PPSServer server;
            server.PPSUseDescriptor(server_pair.ours);
            server.PPSAddFdWatcher(always_ready[0], RaiseTerminationOnce, nullptr);
            server.PPSRun();
        },
        ::testing::ExitedWithCode(0), "");
}

// In one pass: the request first, then the watchers in their registration
// order (not their descriptor order); a watcher of -1 never runs.
TEST_F(PPSLoopTest, RequestThenWatchersInRegistrationOrder) {
    SocketPair first;
    SocketPair second;
    server.PPSAddFdWatcher(second.ours, RecordWatcher, const_cast<char*>("second"));
    server.PPSAddFdWatcher(-1, RecordWatcher, const_cast<char*>("none"));
    server.PPSAddFdWatcher(first.ours, RecordWatcher, const_cast<char*>("first"));
    first.Send("x");
    second.Send("x");
    server_pair.Send("@control.5\nmsg::radiostats\nid::17\n");
    RunOnePass();
    EXPECT_THAT(events, ::testing::ElementsAre("request 5 radiostats 17 (null)", "watcher second",
                                               "watcher first"));
}

TEST_F(PPSLoopTest, EagainOnServerReadDelaysWatchersToNextPass) {
    SocketPair config;
    server.PPSAddFdWatcher(config.ours, RecordWatcher, const_cast<char*>("config"));
    config.Send("x");
    ASSERT_EQ(::fcntl(server.fd(), F_SETFL, O_NONBLOCK), 0);

    // poll said the server was ready, but its read would block.
    std::vector<pollfd> table(2);
    server.PPSFillPollTable(table.data(), table.size());
    table[0].revents = POLLIN;
    table[1].revents = POLLIN;
    server.PPSRunOnce(table.data(), table.size());
    EXPECT_TRUE(events.empty());

    // Not lost: the next pass finds the configuration still ready.
    RunOnePass();
    EXPECT_THAT(events, ::testing::ElementsAre("watcher config"));
}

// Replies.

constexpr const char* kServerPath = "/pps/services/radioctrl/modem0/diag/control?server";

struct ReplyCase {
    uint64_t client;
    const char* dat;
    int err;
    bool json;
    const char* tail;  // after the object line, res and id
};

// The largest client id is written with all twenty digits.
TEST_F(PPSLoopTest, ReplyRepeatsDatAsStringOrJsonAndAddsTheError) {
    const ReplyCase cases[] = {
        {5, nullptr, 0, false, ""},
        {5, "{\"a\":1}", 0, false, "dat::{\"a\":1}\n"},
        {5, "{\"a\":1}", 22, true, "dat:json:{\"a\":1}\nerr:n:22\n"},
        {UINT64_MAX, nullptr, 0, false, ""},
    };
    for (const ReplyCase& c : cases) {
        server.PPSReply(kServerPath, c.client, "radiostats", "17", c.dat, c.err, c.json);
        EXPECT_EQ(server_pair.Receive(), "@/pps/services/radioctrl/modem0/diag/control?server." +
                                             std::to_string(c.client) +
                                             "\nres::radiostats\nid::17\n" + c.tail);
    }
}

}  // namespace
