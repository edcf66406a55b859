// The broker over real sockets: a ppsd process per test (rt::test::PpsBroker),
// handles opened with pps_open in this process and in forked children.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "testsupport/child_process.h"
#include "testsupport/eventually.h"

namespace {

using rt::test::BinPath;
using rt::test::ChildProcess;
using rt::test::Eventually;
using rt::test::PpsBroker;

constexpr int kWaitMs = 5000;  // a generous bound for things that must happen

// One message, waiting up to `timeout_ms`; nullopt when none came.
std::optional<std::string> ReadMsg(int fd, int timeout_ms = kWaitMs) {
    pollfd entry{fd, POLLIN, 0};
    if (::poll(&entry, 1, timeout_ms) <= 0) return std::nullopt;
    char buffer[65536];
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) return std::nullopt;
    return std::string(buffer, static_cast<size_t>(n));
}

// Nothing pending: a read of a handle without "wait" fails with EAGAIN.
bool NothingPending(int fd) {
    char buffer[16];
    errno = 0;
    return ::read(fd, buffer, sizeof buffer) < 0 && errno == EAGAIN;
}

bool Write(int fd, const std::string& text) {
    return ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

int Open(const std::string& path, int flags, mode_t mode = 0666) {
    return pps_open(path.c_str(), flags, mode);
}

// The object's current text, through a fresh plain handle.
std::string ReadWhole(const std::string& path) {
    int fd = Open(path, O_RDONLY);
    if (fd < 0) return "<open failed: " + std::string(std::strerror(errno)) + ">";
    std::string text = ReadMsg(fd).value_or("<nothing>");
    ::close(fd);
    return text;
}

// Runs `body` in a forked child; its return value is the exit status.
template <typename F>
pid_t Fork(F body) {
    pid_t pid = ::fork();
    if (pid == 0) ::_exit(body());
    return pid;
}

int Reap(pid_t pid) {
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Lets other users reach the broker's socket (its temp dir is 0700).
void OpenSocketDirToAll(const PpsBroker& broker) {
    std::string dir = broker.socket().substr(0, broker.socket().rfind('/'));
    ::chmod(dir.c_str(), 0711);
}

// Drops the calling (child) process to nobody.
bool BecomeNobody() {
    return ::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0;
}

class PpsdTest : public ::testing::Test {
  protected:
    PpsBroker broker_;
};

// --- opening -------------------------------------------------------------

TEST_F(PpsdTest, OpenErrorsAreThoseOfFiles) {
    int made = Open("/pps/dir/obj", O_RDWR | O_CREAT);
    ASSERT_GE(made, 0);
    struct Case {
        const char* path;
        int flags;
        int error;
    } cases[] = {
        {"/pps/dir/missing", O_RDONLY, ENOENT},
        {"/pps/dir/obj?bogus", O_RDONLY, EINVAL},
        {"pps/relative", O_RDWR | O_CREAT, EINVAL},
        {"/pps/dir", O_RDONLY, EISDIR},
        {"/pps/dir/obj/below", O_RDWR | O_CREAT, ENOTDIR},
        {"/pps/dir/obj", O_RDWR | O_CREAT | O_EXCL, EEXIST},
    };
    for (const auto& c : cases) {
        errno = 0;
        EXPECT_EQ(Open(c.path, c.flags), -1) << c.path;
        EXPECT_EQ(errno, c.error) << c.path << ": " << std::strerror(errno);
    }
    ::close(made);
}

TEST_F(PpsdTest, ExistsAndUnlinkIgnoreOptions) {
    int fd = Open("/pps/u/obj?nopersist", O_RDWR | O_CREAT);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(pps_unlink("/pps/u/obj?delta"), 0);
    EXPECT_FALSE(pps_exists("/pps/u/obj"));
    errno = 0;
    EXPECT_EQ(pps_unlink("/pps/u/obj"), -1);
    EXPECT_EQ(errno, ENOENT);
    ::close(fd);
}

TEST_F(PpsdTest, NoBrokerIsAnOpenError) {
    ::setenv("PPS_SOCKET", (broker_.socket() + ".none").c_str(), 1);
    errno = 0;
    EXPECT_EQ(Open("/pps/x", O_RDONLY), -1);
    EXPECT_TRUE(errno == ENOENT || errno == ECONNREFUSED) << std::strerror(errno);
    ::setenv("PPS_SOCKET", broker_.socket().c_str(), 1);
}

// Both ways of emptying an object, an O_TRUNC open and the close of its
// "critical" handle, tell delta readers with a truncation line.
TEST_F(PpsdTest, TruncateAndCriticalCloseEmptyTheObjectAndTellReaders) {
    int w = Open("/pps/t/tr", O_RDWR | O_CREAT);
    ASSERT_TRUE(Write(w, "a::1\n"));
    int d = Open("/pps/t/tr?delta", O_RDONLY);
    EXPECT_EQ(ReadMsg(d).value_or(""), "@tr\na::1\n");
    int t = Open("/pps/t/tr", O_RDWR | O_TRUNC);
    ASSERT_GE(t, 0);
    EXPECT_EQ(ReadMsg(d).value_or(""), "#@tr\n");
    EXPECT_EQ(ReadMsg(t).value_or(""), "@tr\n");
    for (int fd : {t, d, w}) ::close(fd);

    int owner = Open("/pps/t/status?nopersist,critical", O_RDWR | O_CREAT | O_TRUNC, 0640);
    ASSERT_GE(owner, 0);
    ASSERT_TRUE(Write(owner, "rrc_state::CELL_DCH\n"));
    d = Open("/pps/t/status?delta", O_RDONLY);
    EXPECT_EQ(ReadMsg(d).value_or(""), "@status\nrrc_state::CELL_DCH\n");
    ::close(owner);
    EXPECT_EQ(ReadMsg(d).value_or(""), "#@status\n");
    EXPECT_EQ(ReadWhole("/pps/t/status"), "@status\n");
    ::close(d);
}

// --- delta and wait --------------------------------------------------------

TEST_F(PpsdTest, DeltaGivesOneGroupPerWriteWithOnlyWhatChanged) {
    int w = Open("/pps/t/cfg", O_RDWR | O_CREAT);
    ASSERT_TRUE(Write(w, "a::1\nb:n:2\n"));
    int d = Open("/pps/t/cfg?delta", O_RDONLY);
    ASSERT_GE(d, 0);
    EXPECT_EQ(ReadMsg(d).value_or(""), "@cfg\na::1\nb:n:2\n");
    pollfd entry{d, POLLIN, 0};
    EXPECT_EQ(::poll(&entry, 1, 0), 0) << "readable with nothing pending";

    ASSERT_TRUE(Write(w, "a::2\n"));
    ASSERT_TRUE(Write(w, "b:n:2\nc:b:true\n-a\n"));
    ASSERT_TRUE(Write(w, "c:b:true\n"));  // changes nothing: no group
    ASSERT_TRUE(Write(w, "-nosuch\nd::4\n"));
    EXPECT_EQ(ReadMsg(d).value_or(""), "@cfg\na::2\n");
    EXPECT_EQ(ReadMsg(d).value_or(""), "@cfg\nc:b:true\n-a\n");
    EXPECT_EQ(ReadMsg(d).value_or(""), "@cfg\nd::4\n");
    EXPECT_TRUE(NothingPending(d));
    EXPECT_EQ(::poll(&entry, 1, 0), 0);
    EXPECT_EQ(ReadWhole("/pps/t/cfg"), "@cfg\nb:n:2\nc:b:true\nd::4\n");
    ::close(d);
    ::close(w);
}

TEST_F(PpsdTest, AReaderGoneUnnoticedDoesNotDisturbTheOthers) {
    int w = Open("/pps/t/many", O_RDWR | O_CREAT);
    int readers[3];
    for (int& r : readers) {
        r = Open("/pps/t/many?delta", O_RDONLY);
        ASSERT_GE(r, 0);
        ASSERT_TRUE(ReadMsg(r).has_value());
    }
    // The first reader goes while the broker is stopped, so the broker finds
    // out only when it sends to it, in the middle of telling them all.
    ASSERT_TRUE(broker_.process().Signal(SIGSTOP));
    ::close(readers[0]);
    ASSERT_TRUE(Write(w, "x::1\n"));
    ASSERT_TRUE(broker_.process().Signal(SIGCONT));
    for (int i : {1, 2}) {
        EXPECT_EQ(ReadMsg(readers[i]).value_or(""), "@many\nx::1\n") << i;
        EXPECT_TRUE(NothingPending(readers[i])) << i;
    }
    ::close(readers[1]);
    ::close(readers[2]);
    ::close(w);
}

// The daemon deletes ens_value right after opening diag/config: the first
// pps_read must not bring it back, nor miss what others wrote meanwhile. A
// plain read still gets the copy taken at the open.
TEST_F(PpsdTest, FirstReadOfADeltaHandleGivesTheObjectAsItStandsThen) {
    int w = Open("/pps/t/first", O_RDWR | O_CREAT);
    ASSERT_TRUE(Write(w, "keep::1\nens_value::1\nlater::old\n"));
    int d = Open("/pps/t/first?delta", O_RDWR);
    ASSERT_GE(d, 0);
    int plain = Open("/pps/t/first?delta", O_RDONLY);
    ASSERT_TRUE(Write(d, "-ens_value\n"));  // its own write: never sent back to it
    ASSERT_TRUE(Write(w, "later::new\nadded::2\n"));
    ASSERT_EQ(ReadWhole("/pps/t/first"), "@first\nkeep::1\nlater::new\nadded::2\n");
    char buffer[4096];
    ssize_t n = pps_read(d, buffer, sizeof buffer);
    ASSERT_GT(n, 0);
    // The other writer's change came before this read: it is in the object.
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(n)),
              "@first\nkeep::1\nlater::new\nadded::2\n");
    EXPECT_TRUE(NothingPending(d));
    // From then on, one group per change as before.
    ASSERT_TRUE(Write(w, "-added\n"));
    pollfd entry{d, POLLIN, 0};
    ASSERT_EQ(::poll(&entry, 1, kWaitMs), 1);
    n = pps_read(d, buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(n > 0 ? n : 0)), "@first\n-added\n");
    EXPECT_EQ(ReadMsg(plain).value_or(""), "@first\nkeep::1\nens_value::1\nlater::old\n");
    for (int fd : {plain, d, w}) ::close(fd);
}

TEST_F(PpsdTest, FirstReadRuleKeepsToTheHandleItWasOpenedFor) {
    // A delta handle closed unread, its number taken by another socket: a
    // pps_read of that socket is a plain read, and nothing is sent on it.
    int d = Open("/pps/t/reuse?delta", O_RDONLY | O_CREAT);
    ASSERT_GE(d, 0);
    ::close(d);
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, pair), 0);
    if (pair[0] != d) {
        ::close(pair[0]);
        ::close(pair[1]);
        GTEST_SKIP() << "the descriptor number was not reused";
    }
    ASSERT_TRUE(Write(pair[1], "@peer\nx::1\n"));
    char buffer[256];
    ssize_t n = pps_read(pair[0], buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(n > 0 ? n : 0)), "@peer\nx::1\n");
    EXPECT_TRUE(NothingPending(pair[1])) << "the first-read request went to the wrong socket";
    ::close(pair[0]);
    ::close(pair[1]);
}

TEST_F(PpsdTest, WaitReadBlocksUntilAWrite) {
    int made = Open("/pps/t/w", O_RDWR | O_CREAT);
    ASSERT_GE(made, 0);
    int ready[2], result[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(result), 0);
    pid_t child = Fork([&] {
        int fd = pps_open("/pps/t/w?wait,delta", O_RDONLY);
        if (fd < 0 || (::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0) return 1;
        char buffer[4096];
        if (::read(fd, buffer, sizeof buffer) <= 0) return 2;  // the whole object, at once
        if (::write(ready[1], "r", 1) != 1) return 3;          // now blocking in read
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0 || ::write(result[1], buffer, static_cast<size_t>(n)) != n) return 4;
        return 0;
    });
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    // The child's read has not returned: nothing has been written yet.
    pollfd entry{result[0], POLLIN, 0};
    EXPECT_EQ(::poll(&entry, 1, 50), 0);
    ASSERT_TRUE(Write(made, "go::1\n"));
    char buffer[256] = {};
    ASSERT_EQ(::poll(&entry, 1, kWaitMs), 1);
    ssize_t n = ::read(result[0], buffer, sizeof buffer - 1);
    EXPECT_EQ(std::string(buffer, n > 0 ? static_cast<size_t>(n) : 0), "@w\ngo::1\n");
    EXPECT_EQ(Reap(child), 0);
    for (int fd : {ready[0], ready[1], result[0], result[1], made}) ::close(fd);
}

// --- server objects ----------------------------------------------------------

std::string ConnectPrefix(const std::string& name, int id, pid_t pid, uid_t uid, gid_t gid) {
    return "+@" + name + "." + std::to_string(id) + ".n0.p" + std::to_string(pid) + ".u" +
           std::to_string(uid) + ".g" + std::to_string(gid);
}

TEST_F(PpsdTest, ServerRoutesToOneClientAndToAllAndClientsCannotSpoof) {
    int server = Open("/pps/s/control?server", O_RDWR | O_CREAT | O_TRUNC);
    ASSERT_GE(server, 0);
    int c1 = Open("/pps/s/control", O_RDWR);
    int c2 = Open("/pps/s/control", O_RDWR);
    ASSERT_GE(c1, 0);
    ASSERT_GE(c2, 0);
    std::string l1 = ReadMsg(server).value_or("");
    std::string l2 = ReadMsg(server).value_or("");
    EXPECT_EQ(l1.rfind(ConnectPrefix("control", 1, ::getpid(), ::getuid(), ::getgid()), 0), 0u)
        << l1;
    EXPECT_EQ(l2.rfind(ConnectPrefix("control", 2, ::getpid(), ::getuid(), ::getgid()), 0), 0u)
        << l2;
    EXPECT_TRUE(NothingPending(c1)) << "a client gets no object at open";

    // A client's message reaches the server only as that client's attribute
    // lines: object, connect, disconnect and truncation lines inside it are
    // dropped, wherever they stand.
    struct Case {
        const char* name;
        std::string written;
        std::string seen;
    };
    const std::vector<Case> cases = {
        {"object line after an attribute", "x::y\n@control.2\nmsg::radiostats\nid::spoof2\n",
         "@control.1\nx::y\nmsg::radiostats\nid::spoof2\n"},
        {"forged connect", "+@control.7.n0.p1.u0.g0\nmsg::a\n", "@control.1\nmsg::a\n"},
        {"forged disconnect", "msg::a\n-@control.2\n", "@control.1\nmsg::a\n"},
        {"forged truncation", "#@control\nmsg::a\n", "@control.1\nmsg::a\n"},
        {"attribute deletion passes", "-old\nmsg::a\n", "@control.1\n-old\nmsg::a\n"},
        {"text after a NUL", std::string("msg::a\n\0@control.2\nid::9\n", 25),
         "@control.1\nmsg::a\n"},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(Write(c1, c.written)) << c.name;
        EXPECT_EQ(ReadMsg(server).value_or("<none>"), c.seen) << c.name;
    }

    ASSERT_TRUE(Write(c2, "@control\nmsg::radiostats\nid::17\n"));
    EXPECT_EQ(ReadMsg(server).value_or(""), "@control.2\nmsg::radiostats\nid::17\n");
    ASSERT_TRUE(Write(c1, "msg::bearer\nid::3\n"));
    EXPECT_EQ(ReadMsg(server).value_or(""), "@control.1\nmsg::bearer\nid::3\n");

    // To client 2 only, addressed the way the daemon writes it.
    ASSERT_TRUE(Write(server, "@/pps/s/control?server.2\nres::radiostats\nid::17\n"));
    EXPECT_EQ(ReadMsg(c2).value_or(""), "@control\nres::radiostats\nid::17\n");
    EXPECT_TRUE(NothingPending(c1));
    // Without an id: everyone.
    ASSERT_TRUE(Write(server, "@control\nnote::all\n"));
    EXPECT_EQ(ReadMsg(c1).value_or(""), "@control\nnote::all\n");
    EXPECT_EQ(ReadMsg(c2).value_or(""), "@control\nnote::all\n");
    // An id nobody has: nobody.
    ASSERT_TRUE(Write(server, "@control.99\nres::x\n"));
    ::close(c2);
    EXPECT_EQ(ReadMsg(server).value_or(""), "-@control.2\n");
    EXPECT_TRUE(NothingPending(c1));
    // Client writes reach no attribute of the object.
    EXPECT_TRUE(NothingPending(server));
    ::close(c1);
    ::close(server);
}

TEST_F(PpsdTest, SecondServerIsBusyAndCallWithoutServerIsRefused) {
    int plain = Open("/pps/s/ctl", O_RDWR | O_CREAT);
    errno = 0;
    EXPECT_EQ(pps_open_client("/pps/s/ctl", O_RDWR), -1);
    EXPECT_EQ(errno, ENXIO);
    int server = Open("/pps/s/ctl?server", O_RDWR);
    ASSERT_GE(server, 0);
    errno = 0;
    EXPECT_EQ(Open("/pps/s/ctl?server", O_RDWR), -1);
    EXPECT_EQ(errno, EBUSY);
    int client = pps_open_client("/pps/s/ctl", O_RDWR);
    EXPECT_GE(client, 0);
    ::close(client);
    ::close(server);
    ::close(plain);
}

// The connect line carries the kernel's credentials of the client process.
void ExpectConnectOfChild(int server, bool as_nobody, int id) {
    int go[2];
    ASSERT_EQ(::pipe(go), 0);
    pid_t child = Fork([&] {
        if (as_nobody && !BecomeNobody()) return 10;
        int fd = pps_open("/pps/s/cred", O_RDWR);
        if (fd < 0) return 11;
        char byte;
        return ::read(go[0], &byte, 1) == 1 ? 0 : 12;  // stay connected until told
    });
    std::string line = ReadMsg(server).value_or("");
    uid_t uid = as_nobody ? 65534 : ::getuid();
    gid_t gid = as_nobody ? 65534 : ::getgid();
    std::string expected = ConnectPrefix("cred", id, child, uid, gid);
    if (as_nobody) {
        EXPECT_EQ(line, expected + "\n");  // no supplementary groups left
    } else {
        EXPECT_EQ(line.rfind(expected, 0), 0u) << line;
        // Every supplementary group of ours follows, primary group excluded.
        std::vector<gid_t> groups(256);
        int n = ::getgroups(static_cast<int>(groups.size()), groups.data());
        for (int i = 0; i < n; ++i)
            if (groups[i] != gid) {
                EXPECT_NE(line.find(".g" + std::to_string(groups[i])), std::string::npos) << line;
            }
    }
    ASSERT_EQ(::write(go[1], "x", 1), 1);
    EXPECT_EQ(Reap(child), 0);
    EXPECT_EQ(ReadMsg(server).value_or(""), "-@cred." + std::to_string(id) + "\n");
    ::close(go[0]);
    ::close(go[1]);
}

TEST_F(PpsdTest, ConnectAndDisconnectLinesCarryRealCredentials) {
    int server = Open("/pps/s/cred?server", O_RDWR | O_CREAT, 0666);
    ASSERT_GE(server, 0);
    ExpectConnectOfChild(server, false, 1);
    OpenSocketDirToAll(broker_);
    if (::getuid() == 0) ExpectConnectOfChild(server, true, 2);
    ::close(server);
}

TEST_F(PpsdTest, ClientThatDisconnectsMidRequestDoesNotDisturbOthers) {
    int server = Open("/pps/s/svc?server", O_RDWR | O_CREAT, 0666);
    ASSERT_GE(server, 0);
    int steady = Open("/pps/s/svc", O_RDWR);
    ASSERT_GE(steady, 0);
    EXPECT_NE(ReadMsg(server), std::nullopt);  // steady's connect (id 1)
    // A client that sends a request and dies before the answer.
    pid_t child = Fork([] {
        int fd = pps_open("/pps/s/svc", O_RDWR);
        if (fd < 0 || ::write(fd, "msg::slow\nid::9\n", 16) != 16) return 1;
        ::kill(::getpid(), SIGKILL);
        return 2;
    });
    EXPECT_EQ(Reap(child), 128 + SIGKILL);
    EXPECT_EQ(ReadMsg(server).value_or("").rfind("+@svc.2.", 0), 0u);
    EXPECT_EQ(ReadMsg(server).value_or(""), "@svc.2\nmsg::slow\nid::9\n");
    EXPECT_EQ(ReadMsg(server).value_or(""), "-@svc.2\n");
    ASSERT_TRUE(Write(steady, "msg::fast\nid::1\n"));
    EXPECT_EQ(ReadMsg(server).value_or(""), "@svc.1\nmsg::fast\nid::1\n");
    // The late answer to the dead client goes nowhere; the other one arrives.
    ASSERT_TRUE(Write(server, "@svc.2\nres::slow\nid::9\n"));
    ASSERT_TRUE(Write(server, "@svc.1\nres::fast\nid::1\n"));
    EXPECT_EQ(ReadMsg(steady).value_or(""), "@svc\nres::fast\nid::1\n");
    EXPECT_TRUE(NothingPending(steady));
    ::close(steady);
    ::close(server);
}

// --- persistence ---------------------------------------------------------------

// Persistent objects come back whole; "nopersist" ones come back empty but
// with their owner and mode, so that after a restart nobody else can take
// their names (or put objects under them) before their owner returns.
TEST_F(PpsdTest, ObjectsSurviveARestartNopersistOnesAsEntriesOnly) {
    int keep = Open("/pps/p/config", O_RDWR | O_CREAT, 0640);
    int gone = Open("/pps/p/status?nopersist", O_RDWR | O_CREAT, 0640);
    int empty = Open("/pps/p/empty", O_RDWR | O_CREAT, 0644);
    ASSERT_TRUE(Write(keep, "diaglogmask::1\nens:n:3\nold::x\n"));
    ASSERT_TRUE(Write(keep, "-old\n"));
    ASSERT_TRUE(Write(gone, "rrc::idle\n"));
    // A round trip through another handle: the broker has applied both writes.
    EXPECT_EQ(ReadWhole("/pps/p/config"), "@config\ndiaglogmask::1\nens:n:3\n");
    for (int fd : {keep, gone, empty}) ::close(fd);

    broker_.Restart();
    EXPECT_EQ(ReadWhole("/pps/p/config"), "@config\ndiaglogmask::1\nens:n:3\n");
    EXPECT_EQ(ReadWhole("/pps/p/empty"), "@empty\n");
    EXPECT_EQ(ReadWhole("/pps/p/status"), "@status\n");
    struct stat info {};
    ASSERT_EQ(pps_stat("/pps/p/status", &info), 0);
    EXPECT_EQ(info.st_uid, ::getuid());
    EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFREG | 0640));
    // Written again after the restart, it is still not stored.
    int again = Open("/pps/p/status", O_WRONLY);
    ASSERT_TRUE(Write(again, "rrc::dch\n"));
    EXPECT_EQ(pps_sync(again, kWaitMs), 0);
    ::close(again);
    broker_.Restart();
    EXPECT_EQ(ReadWhole("/pps/p/status"), "@status\n");
    // The stored objects keep their modes: check them against a non-root user.
    if (::getuid() == 0) {
        OpenSocketDirToAll(broker_);
        pid_t child = Fork([] {
            if (!BecomeNobody()) return 10;
            if (!pps_exists("/pps/p/config")) return 2;  // the broker is reachable
            int failures = 0;
            if (pps_open("/pps/p/config", O_RDONLY) >= 0 || errno != EACCES) failures |= 1;
            if (pps_open("/pps/p/status", O_WRONLY) >= 0 || errno != EACCES) failures |= 4;
            if (pps_open("/pps/p/status/under", O_WRONLY | O_CREAT, 0666) >= 0 || errno != ENOTDIR)
                failures |= 8;
            if (pps_unlink("/pps/p/status") == 0) failures |= 16;
            return failures;
        });
        EXPECT_EQ(Reap(child), 0);
    }
}

TEST_F(PpsdTest, BrokerExitsZeroOnSigtermAndRemovesItsSocket) {
    EXPECT_TRUE(broker_.process().Signal(SIGTERM));
    EXPECT_EQ(broker_.process().Wait(), 0);
    EXPECT_NE(::access(broker_.socket().c_str(), F_OK), 0);
    broker_.Restart();  // the fixture's destructor expects one running
}

// --- access ----------------------------------------------------------------------

// Modes and owners as on files: a user who may only read an object cannot
// write it, nor change it through open options, nor remove an object not
// its own (even one everybody may write); root passes whatever the mode.
TEST_F(PpsdTest, ModesAndOwnersDecideWhoMayDoWhat) {
    int zero = Open("/pps/a/zero", O_RDWR | O_CREAT, 0);
    ASSERT_GE(zero, 0);
    int again = Open("/pps/a/zero", O_RDONLY);
    if (::getuid() != 0) {
        EXPECT_EQ(again, -1);
        EXPECT_EQ(errno, EACCES);
        GTEST_SKIP() << "needs root to act as another user";
    }
    EXPECT_GE(again, 0) << "root passes";
    std::vector<int> fds{zero, again, Open("/pps/a/private", O_RDWR | O_CREAT, 0600),
                         Open("/pps/a/shared", O_RDWR | O_CREAT, 0644),
                         Open("/pps/a/control", O_RDWR | O_CREAT, 0666)};
    ASSERT_TRUE(Write(fds[3], "keep::me\n"));
    ASSERT_EQ(ReadWhole("/pps/a/shared"), "@shared\nkeep::me\n");
    OpenSocketDirToAll(broker_);
    pid_t child = Fork([] {
        if (!BecomeNobody()) return 100;
        int readable = pps_open("/pps/a/shared", O_RDONLY);  // reading is allowed
        if (readable < 0) return 99;
        ::close(readable);
        struct Case {
            const char* path;
            int flags;
        } const refused[] = {
            {"/pps/a/private", O_RDONLY},
            {"/pps/a/shared", O_WRONLY},
            {"/pps/a/shared", O_RDWR},
            {"/pps/a/shared?critical", O_RDONLY},
            {"/pps/a/shared?nopersist", O_RDONLY},
            {"/pps/a/shared", O_RDONLY | O_TRUNC},
        };
        for (size_t i = 0; i < std::size(refused); ++i)
            if (pps_open(refused[i].path, refused[i].flags) != -1 || errno != EACCES)
                return 1 + int(i);
        if (pps_unlink("/pps/a/shared") != -1 || errno != EACCES) return 20;
        if (pps_unlink("/pps/a/control") != -1 || errno != EPERM) return 21;
        // An object of its own is its to use.
        return pps_open("/pps/mine", O_RDWR | O_CREAT, 0600) >= 0 ? 0 : 22;  // /pps is open to all
    });
    EXPECT_EQ(Reap(child), 0);
    EXPECT_EQ(ReadWhole("/pps/a/shared"), "@shared\nkeep::me\n");
    EXPECT_EQ(pps_unlink("/pps/a/control"), 0) << "its owner may";
    for (int fd : fds) ::close(fd);
}

// --- bounded queues ----------------------------------------------------------

// Folds the messages a delta reader got into the object's state.
void Fold(const std::string& message, std::map<std::string, std::string>* state) {
    size_t start = 0;
    bool first = true;
    while (start < message.size()) {
        size_t end = message.find('\n', start);
        std::string line = message.substr(start, end - start);
        start = end == std::string::npos ? message.size() : end + 1;
        if (first) {
            first = false;
            if (line.rfind("#@", 0) == 0) state->clear();
            continue;
        }
        if (line.empty()) continue;
        if (line[0] == '-') {
            state->erase(line.substr(1));
        } else {
            size_t colon = line.find(':');
            (*state)[line.substr(0, colon)] = line.substr(colon + 1);
        }
    }
}

TEST(PpsdQueueCap, SlowDeltaReaderIsResynchronisedWithTheWholeObject) {
    PpsBroker broker({"--queue-cap", "4"});
    ChildProcess& ppsd = broker.process();

    // A blocking ("wait") writer: a burst this size outruns the broker, and a
    // non-blocking handle's write would then fail with EAGAIN.
    int writer = Open("/pps/q/obj?wait", O_RDWR | O_CREAT);
    ASSERT_GE(writer, 0);
    ASSERT_TRUE(Write(writer, "gone::soon\n"));
    int slow = Open("/pps/q/obj?delta", O_RDONLY);
    ASSERT_GE(slow, 0);
    constexpr int kWrites = 5000;
    ASSERT_TRUE(Write(writer, "-gone\n"));
    for (int i = 1; i <= kWrites; ++i)
        ASSERT_TRUE(Write(writer, "n:n:" + std::to_string(i) + "\n"));
    // The broker has taken every write once a fresh handle sees the last.
    std::string last = "@obj\nn:n:" + std::to_string(kWrites) + "\n";
    ASSERT_TRUE(Eventually([&] { return ReadWhole("/pps/q/obj") == last; }))
        << ReadWhole("/pps/q/obj");

    std::map<std::string, std::string> state;
    int messages = 0, resyncs = 0;
    while (auto message = ReadMsg(slow, 1000)) {
        ++messages;
        if (message->rfind("#@obj\n", 0) == 0) ++resyncs;
        Fold(*message, &state);
    }
    EXPECT_GE(resyncs, 1);
    EXPECT_LT(messages, kWrites + 2) << "some deltas were folded into the resync";
    EXPECT_EQ(state, (std::map<std::string, std::string>{{"n", "n:" + std::to_string(kWrites)}}));
    EXPECT_TRUE(ppsd.WaitForStderr("queue full"));
    ::close(slow);
    ::close(writer);
}

// The broker's peak under the test below: 100 x 1 MiB of queues and the
// broker itself, doubled under AddressSanitizer, whose shadow memory and
// freed-memory quarantine come on top; unbounded queues took over 1 GB.
#if defined(__SANITIZE_ADDRESS__)
constexpr long kBrokerPeakBoundKib = 400 * 1024;
#else
constexpr long kBrokerPeakBoundKib = 160 * 1024;
#endif

// Readers that never read cost the broker at most its per-handle byte bound
// each: 100 of them under 300 writes of 60 KB once took it past 1 GB.
TEST(PpsdQueueCap, ReadersThatNeverReadDoNotGrowTheBrokerPastItsBounds) {
    PpsBroker broker;
    int writer = Open("/pps/q/big?wait", O_RDWR | O_CREAT);
    ASSERT_GE(writer, 0);
    std::vector<int> readers;
    for (int i = 0; i < 100; ++i) {
        int fd = Open("/pps/q/big?delta", O_RDONLY);
        ASSERT_GE(fd, 0);
        readers.push_back(fd);
    }
    constexpr int kWrites = 300;
    const std::string filler(60 * 1024, 'x');
    for (int i = 1; i <= kWrites; ++i)
        ASSERT_TRUE(Write(writer, "blob::" + std::to_string(i) + filler + "\n"));
    std::string last = "blob::" + std::to_string(kWrites) + "x";
    ASSERT_TRUE(
        Eventually([&] { return ReadWhole("/pps/q/big").find(last) != std::string::npos; }));

    // Peak resident size: 100 handles x 1 MiB of queue, plus the object and
    // the broker itself, stays far below what unbounded queues took.
    std::ifstream status("/proc/" + std::to_string(broker.process().pid()) + "/status");
    std::string line;
    long peak_kib = -1;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) peak_kib = std::stol(line.substr(6));
    ASSERT_GT(peak_kib, 0);
    EXPECT_LT(peak_kib, kBrokerPeakBoundKib) << "peak resident KiB";
    EXPECT_TRUE(broker.process().WaitForStderr("queue full"));
    for (int fd : readers) ::close(fd);
    ::close(writer);
}

// --- nothing lost ----------------------------------------------------------------

// A handle that writes a burst and closes while others change the object:
// the broker's send to it fails (its peer is gone), yet every write it had
// sent is still applied. Several trials, each on an object of its own.
TEST_F(PpsdTest, BurstThenCloseKeepsEveryWriteWhileOthersChangeTheObject) {
    constexpr int kTrials = 20, kBurst = 50;
    for (int trial = 0; trial < kTrials; ++trial) {
        std::string path = "/pps/burst/obj" + std::to_string(trial);
        int other = Open(path + "?wait", O_RDWR | O_CREAT);
        ASSERT_GE(other, 0);
        int writer = Open(path + "?wait", O_RDWR | O_CREAT);
        ASSERT_GE(writer, 0);
        for (int i = 1; i <= kBurst; ++i)
            ASSERT_TRUE(Write(writer, "n:n:" + std::to_string(i) + "\n"));
        ::close(writer);
        for (int i = 0; i < 5; ++i) ASSERT_TRUE(Write(other, "o:n:" + std::to_string(i) + "\n"));
        std::string expected =
            "@obj" + std::to_string(trial) + "\no:n:4\nn:n:" + std::to_string(kBurst) + "\n";
        std::string seen;
        Eventually([&] { return (seen = ReadWhole(path)).find("n:n:") != std::string::npos; });
        EXPECT_NE(seen.find("n:n:" + std::to_string(kBurst) + "\n"), std::string::npos)
            << "trial " << trial << ": " << seen;
        ::close(other);
    }
}

// A server that is slow to read: its clients wait (back-pressure) and every
// request reaches it, none is dropped at its queue.
TEST(PpsdQueueCap, EveryPipelinedRequestReachesASlowServer) {
    PpsBroker broker({"--queue-cap", "4"});

    int server = Open("/pps/q/control?server", O_RDWR | O_CREAT);
    ASSERT_GE(server, 0);
    constexpr int kRequests = 1000;
    pid_t client = Fork([] {
        int fd = pps_open_client("/pps/q/control?wait", O_RDWR);
        if (fd < 0) return 1;
        for (int i = 0; i < kRequests; ++i)
            if (!Write(fd, "msg::radiostats\nid::" + std::to_string(i) + "\n")) return 2;
        return 0;
    });
    // The requests pile up until the broker holds the client back.
    ASSERT_TRUE(broker.process().WaitForStderr("they wait for it")) << broker.process().Stderr();
    int requests = 0, next_id = 0;
    bool in_order = true;
    while (requests < kRequests) {
        auto message = ReadMsg(server);
        if (!message) break;
        if (message->rfind("@control.1\n", 0) != 0) continue;  // connect line
        in_order &= message->find("id::" + std::to_string(next_id++) + "\n") != std::string::npos;
        ++requests;
    }
    EXPECT_EQ(Reap(client), 0);
    EXPECT_EQ(requests, kRequests);
    EXPECT_TRUE(in_order);
    ::close(server);
}

// --- descriptors and handshakes --------------------------------------------------

// A raw connection to the broker that sends nothing.
int RawConnect(const std::string& socket) {
    int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", socket.c_str());
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Waits until the broker closes `fd`; false when it has not within kWaitMs.
bool ClosedByBroker(int fd) {
    pollfd entry{fd, POLLIN, 0};
    if (::poll(&entry, 1, kWaitMs) <= 0) return false;
    char byte;
    return ::recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

TEST(PpsdLimits, ConnectionThatSendsNoRequestIsDropped) {
    PpsBroker broker({"--handshake-timeout-ms", "200"});
    ChildProcess& ppsd = broker.process();
    // Opens that succeed and opens that are refused come and go first: the
    // broker must still watch the silent one's time.
    for (int i = 0; i < 3; ++i) {
        int fd = Open("/pps/hs/obj", O_RDWR | O_CREAT);
        ASSERT_GE(fd, 0);
        ::close(fd);
        EXPECT_LT(Open("/pps/hs/missing" + std::to_string(i), O_RDONLY), 0);
        EXPECT_LT(Open("/pps/hs/obj?nonsense", O_RDONLY), 0);
    }
    int silent = RawConnect(broker.socket());
    ASSERT_GE(silent, 0);
    EXPECT_TRUE(ClosedByBroker(silent));
    ::close(silent);
    EXPECT_TRUE(ppsd.WaitForStderr("sent no request in time"));
}

// Out of descriptors, the broker stops accepting (one log line, no busy
// loop) and accepts again once a handle closes.
TEST(PpsdLimits, AtTheDescriptorLimitTheBrokerWaitsForOneToFree) {
    rt::test::TempDir dir;
    std::string socket = dir.file("ppsd.sock");
    ChildProcess ppsd(
        {"/bin/sh", "-c", "ulimit -n 24 && exec \"$0\" --socket \"$1\"", BinPath("ppsd"), socket});
    ASSERT_TRUE(Eventually([&] { return ::access(socket.c_str(), F_OK) == 0; })) << ppsd.Stderr();
    ::setenv("PPS_SOCKET", socket.c_str(), 1);
    int writer = Open("/pps/limit/probe", O_RDWR | O_CREAT);
    int reader = Open("/pps/limit/probe?delta", O_RDONLY);
    ASSERT_TRUE(writer >= 0 && reader >= 0) << ppsd.Stderr();
    std::vector<int> idle;
    for (int i = 0; i < 40; ++i) {
        int fd = RawConnect(socket);
        if (fd >= 0) idle.push_back(fd);
    }
    ASSERT_TRUE(ppsd.WaitForStderr("not accepting until a descriptor frees"));
    // Twenty round trips through the broker: one that spun on the listening
    // socket would log an accept failure on each of its turns meanwhile.
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(Write(writer, "n:n:" + std::to_string(i) + "\n"));
        ASSERT_TRUE(ReadMsg(reader).has_value());
    }
    EXPECT_LE(ppsd.CountInStderr("accept:"), 2) << ppsd.Stderr().substr(0, 2000);
    for (int fd : idle) ::close(fd);
    int fd = -1;
    EXPECT_TRUE(Eventually([&] { return (fd = Open("/pps/after/limit", O_RDWR | O_CREAT)) >= 0; }))
        << std::strerror(errno);
    for (int handle : {fd, writer, reader}) ::close(handle);
}

// --- ppsctl -------------------------------------------------------------------------

struct ToolRun {
    int status;
    std::string out, err;
};

ToolRun Ppsctl(const std::string& env, std::vector<std::string> args) {
    args.insert(args.begin(), BinPath("ppsctl"));
    ChildProcess tool(args, {env});
    int status = tool.Wait(15000);
    return {status, tool.Stdout(), tool.Stderr()};
}

ToolRun Ppsctl(const PpsBroker& broker, std::vector<std::string> args) {
    return Ppsctl(broker.env(), std::move(args));
}

TEST_F(PpsdTest, PpsctlWriteReadAndLs) {
    ToolRun w = Ppsctl(broker_, {"write", "/pps/c/config", "msg::radiostats", "n:n:5"});
    EXPECT_EQ(w.status, 0) << w.err;
    EXPECT_EQ(Ppsctl(broker_, {"write", "/pps/c/config", "-msg", "b:b:true"}).status, 0);
    ToolRun r = Ppsctl(broker_, {"read", "/pps/c/config"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "@config\nn:n:5\nb:b:true\n");
    ToolRun ls = Ppsctl(broker_, {"ls"});
    EXPECT_EQ(ls.out, "c/\n");
    EXPECT_EQ(Ppsctl(broker_, {"ls", "/pps/c"}).out, "config\n");

    ToolRun missing = Ppsctl(broker_, {"read", "/pps/x"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "ppsctl: /pps/x: No such file or directory\n");
    EXPECT_EQ(Ppsctl(broker_, {"read"}).status, 2);
    EXPECT_EQ(Ppsctl(broker_, {"frobnicate"}).status, 2);
    ToolRun help = Ppsctl(broker_, {"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("watch"), std::string::npos);
    ToolRun verb_help = Ppsctl(broker_, {"call", "--help"});
    EXPECT_EQ(verb_help.status, 0);
    EXPECT_NE(verb_help.out.find("usage: ppsctl call"), std::string::npos);
}

// The documented limits, each refused with its own error, which ppsctl
// reports with a non-zero exit; what was refused leaves the object as it was.
TEST_F(PpsdTest, LimitsAreEnforcedWithClearErrors) {
    const std::string k40 = std::string(40 * 1024, 'x');
    ASSERT_EQ(Ppsctl(broker_, {"write", "/pps/lim/obj", "a::" + k40}).status, 0);
    struct Case {
        const char* name;
        std::vector<std::string> args;
        std::string error;
    };
    const std::vector<Case> cases = {
        {"message over 64 KiB",
         {"write", "/pps/lim/obj", "b::" + std::string(65 * 1024, 'y')},
         "Message too long"},
        {"object over 64 KiB", {"write", "/pps/lim/obj", "b::" + k40}, "File too large"},
        {"name over 255 bytes",
         {"write", "/pps/lim/" + std::string(250, 'n'), "a::1"},
         "File name too long"},
        {"newline in a name", {"write", "/pps/lim/two\nlines", "a::1"}, "Invalid argument"},
    };
    for (const Case& c : cases) {
        ToolRun run = Ppsctl(broker_, c.args);
        EXPECT_EQ(run.status, 1) << c.name;
        EXPECT_NE(run.err.find(c.error), std::string::npos) << c.name << ": " << run.err;
    }
    // A reader gets the whole object, never a cut one.
    ToolRun r = Ppsctl(broker_, {"read", "/pps/lim/obj"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "@obj\na::" + k40 + "\n");
    // Just under the object limit is fine, and read back whole.
    std::string fits(64 * 1024 - 40 * 1024 - 3 * 2 - 2 - 2, 'z');
    ToolRun w = Ppsctl(broker_, {"write", "/pps/lim/obj", "b::" + fits});
    EXPECT_EQ(w.status, 0) << w.err;
    EXPECT_EQ(Ppsctl(broker_, {"read", "/pps/lim/obj"}).out,
              "@obj\na::" + k40 + "\nb::" + fits + "\n");
}

TEST_F(PpsdTest, PpsctlWatchPrintsEachDelta) {
    int w = Open("/pps/c/watched", O_RDWR | O_CREAT);
    ASSERT_GE(w, 0);
    std::vector<std::string> args{BinPath("ppsctl"), "watch", "--count",       "2",
                                  "--timeout",       "10",    "/pps/c/watched"};
    ChildProcess watch(args, {broker_.env()});
    // The watcher's start is not visible from here: write until it reports.
    int tick = 0;
    EXPECT_TRUE(Eventually([&] {
        return !Write(w, "tick:n:" + std::to_string(tick++) + "\n") || !watch.Running() ||
               watch.Stdout().find("tick") != std::string::npos;
    }));
    ASSERT_TRUE(Write(w, "-tick\n"));
    EXPECT_EQ(watch.Wait(10000), 0);
    std::string out = watch.Stdout();
    EXPECT_EQ(out.rfind("@watched\ntick:n:", 0), 0u) << out;

    ToolRun timeout =
        Ppsctl(broker_, {"watch", "--count", "1", "--timeout", "0.2", "/pps/c/watched"});
    EXPECT_EQ(timeout.status, 3);
    ::close(w);
}

TEST_F(PpsdTest, PpsctlCallGetsTheReply) {
    int server = Open("/pps/c/control?server", O_RDWR | O_CREAT | O_TRUNC, 0666);
    ASSERT_GE(server, 0);
    std::vector<std::string> args{BinPath("ppsctl"), "call", "/pps/c/control", "msg::radiostats",
                                  "id::17"};
    ChildProcess call(args, {broker_.env()});
    std::string connect = ReadMsg(server).value_or("");
    std::string request = ReadMsg(server).value_or("");
    ASSERT_EQ(connect.rfind("+@control.1.n0.p", 0), 0u) << connect;
    EXPECT_EQ(request, "@control.1\nmsg::radiostats\nid::17\n");
    // Another client's reply first (it must be skipped), then ours.
    ASSERT_TRUE(Write(server, "@control\nres::other\nid::99\n"));
    ASSERT_TRUE(Write(server, "@/pps/c/control?server.1\nres::radiostats\nid::17\n"));
    EXPECT_EQ(call.Wait(10000), 0) << call.Stderr();
    EXPECT_EQ(call.Stdout(), "@control\nres::radiostats\nid::17\n");

    ToolRun silent =
        Ppsctl(broker_, {"call", "--timeout", "0.2", "/pps/c/control", "msg::x", "id::1"});
    EXPECT_EQ(silent.status, 3);
    EXPECT_NE(silent.err.find("no reply"), std::string::npos);
    ::close(server);
    ToolRun noserver = Ppsctl(broker_, {"call", "--timeout", "0.2", "/pps/c/control", "msg::x"});
    EXPECT_EQ(noserver.status, 1);
    EXPECT_NE(noserver.err.find("no server"), std::string::npos);
}

// --- confirmed writes and the store -------------------------------------------

// A write ppsctl reports done is in the store: killing the broker right
// after it (no clean shutdown, no chance to store later) loses nothing.
TEST_F(PpsdTest, ConfirmedWriteSurvivesKillNine) {
    for (int round = 0; round < 5; ++round) {
        std::string value = "n:n:" + std::to_string(round);
        ToolRun w = Ppsctl(broker_, {"write", "/pps/k/config", value});
        ASSERT_EQ(w.status, 0) << w.err;
        ASSERT_TRUE(broker_.process().Signal(SIGKILL));
        broker_.Restart();
        EXPECT_EQ(ReadWhole("/pps/k/config"), "@config\n" + value + "\n") << "round " << round;
    }
}

// A broker that takes the write and then closes (a crash, a shutdown) has
// confirmed nothing: ppsctl says so and fails instead of exiting 0.
TEST(PpsctlConfirm, EndOfConnectionIsNotAConfirmation) {
    rt::test::TempDir dir;
    std::string path = dir.file("fake.sock");
    int listener = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    // The fake broker: answers the open, reads the write (and whatever
    // follows until a pause), then closes.
    pid_t fake = Fork([listener] {
        int conn = ::accept(listener, nullptr, nullptr);
        char buffer[4096];
        if (conn < 0 || ::recv(conn, buffer, sizeof buffer, 0) <= 0) return 1;
        if (::send(conn, "0", 1, 0) != 1) return 2;
        if (::recv(conn, buffer, sizeof buffer, 0) <= 0) return 3;
        ::close(conn);
        return 0;
    });
    ToolRun w = Ppsctl("PPS_SOCKET=" + path, {"write", "/pps/f/obj", "a::1"});
    EXPECT_EQ(w.status, 1);
    EXPECT_NE(w.err.find("went away before it confirmed"), std::string::npos) << w.err;
    EXPECT_EQ(Reap(fake), 0);
    ::close(listener);
}

// A full disk: the write is not confirmed (ENOSPC, exit 1), the broker keeps
// it and stores it once there is room, and a restart then finds it.
TEST(PpsdStore, FullDiskRefusesConfirmationThenStoresOnceThereIsRoom) {
    rt::test::TempDir dir;
    std::string store = dir.file("store");
    ::mkdir(store.c_str(), 0700);
    if (::getuid() != 0 || ::mount("tmpfs", store.c_str(), "tmpfs", 0, "size=64k") != 0)
        GTEST_SKIP() << "needs a small tmpfs (root, mount allowed)";
    struct Unmount {
        std::string path;
        ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
    } unmount{store};
    auto start = [&] {
        auto process = std::make_unique<ChildProcess>(
            std::vector<std::string>{BinPath("ppsd"), "--socket", dir.file("s"), "--store", store});
        EXPECT_TRUE(process->WaitForStderr("listening on"));
        return process;
    };
    auto ppsd = start();
    std::string env = "PPS_SOCKET=" + dir.file("s");
    ASSERT_EQ(Ppsctl(env, {"write", "/pps/d/config", "before::1"}).status, 0);
    // Fill the file system to the last byte.
    std::string filler = store + "/filler.tmp";
    {
        std::ofstream out(filler, std::ios::binary);
        std::string block(4096, 'x');
        while (out.write(block.data(), block.size())) {
        }
    }
    ToolRun full = Ppsctl(env, {"write", "/pps/d/config", "after::2"});
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.err.find("No space left on device"), std::string::npos) << full.err;
    EXPECT_TRUE(ppsd->WaitForStderr("cannot store /pps/d/config: No space left on device"));
    // Room again: the broker's retry stores it without another write.
    ::unlink(filler.c_str());
    EXPECT_TRUE(ppsd->WaitForStderr("stored /pps/d/config at last", kWaitMs));
    ASSERT_TRUE(ppsd->Signal(SIGKILL));
    ppsd->Wait();
    ppsd = start();
    EXPECT_EQ(Ppsctl(env, {"read", "/pps/d/config"}).out, "@config\nbefore::1\nafter::2\n");
}

}  // namespace
