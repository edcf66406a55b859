// PPSServer parsing and dispatch: messages as the server object delivers
// them, handed to PPSProcess directly.
#include "service/pps_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/qnx/slogf.h"
#include "service/tavora_log.h"

namespace {

struct Call {
    PPSServer* server;
    void* arg;
    uint64_t client_id;
    std::string msg;
    std::string id;
    std::optional<std::string> dat;
};

std::vector<Call> calls;

void Record(PPSServer* server, void* arg, uint64_t client_id, const char* msg, const char* id,
            const char* dat) {
    calls.push_back(
        {server, arg, client_id, msg, id, dat ? std::optional<std::string>(dat) : std::nullopt});
}

int first_tag = 1;
int second_tag = 2;

class PPSServerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        calls.clear();
        server.PPSAddCommand("radiostats", Record, &first_tag);
    }
    void Process(std::string text) { server.PPSProcess(text.data()); }

    PPSServer server;
};

// One read as the server object delivers it, and the call it makes (none:
// client 0).
struct RequestCase {
    const char* text;
    uint64_t client;
    const char* id;
    std::optional<std::string> dat;
};

TEST_F(PPSServerTest, RequestsParsedFromTheText) {
    const RequestCase cases[] = {
        {"@control.5\nmsg::radiostats\nid::17\n", 5, "17", std::nullopt},
        {"@control.5\nmsg::radiostats\nid::17\ndat:json:{\"a\":1}\n", 5, "17", "{\"a\":1}"},
        {"@control.5\nmsg::radiostats\nid::17\ndat::some text\n", 5, "17", "some text"},
        {"@control.5\nmsg::radiostats\nfoo::bar\nid::17\nres::x\n", 5, "17", std::nullopt},
        // The client id: the number after the first dot, read in base 0.
        {"@control.0\nmsg::radiostats\nid::17\n", 0, "", std::nullopt},
        {"@control.abc\nmsg::radiostats\nid::17\n", 0, "", std::nullopt},
        {"@control\nmsg::radiostats\nid::17\n", 0, "", std::nullopt},
        {"@control.\nmsg::radiostats\nid::17\n", 0, "", std::nullopt},
        {"@radio.ctrl.7\nmsg::radiostats\nid::17\n", 0, "", std::nullopt},
        {"@control.18446744073709551615\nmsg::radiostats\nid::1\n", UINT64_MAX, "1", std::nullopt},
        {"@control.0x1f\nmsg::radiostats\nid::17\n", 31, "17", std::nullopt},
        {"@control.12abc\nmsg::radiostats\nid::17\n", 12, "17", std::nullopt},
        // Nothing to answer: no object line, no id, no msg, no text.
        {"msg::radiostats\nid::17\n", 0, "", std::nullopt},
        {"@control.5\nmsg::radiostats\n", 0, "", std::nullopt},
        {"@control.5\nid::17\n", 0, "", std::nullopt},
        {"", 0, "", std::nullopt},
        // Two requests in one read dispatch once, with the last value of each.
        {"@control.5\nmsg::radiostats\nid::17\ndat::first\n@control.9\nmsg::radiostats\nid::18\n",
         9, "18", "first"},
        // A malformed line ends the parse; what came before it stands.
        {"@control.5\nmsg::radiostats\nid::17\nthis line has no colon\nid::99\n", 5, "17",
         std::nullopt},
    };
    for (const RequestCase& c : cases) {
        calls.clear();
        Process(c.text);
        SCOPED_TRACE(c.text);
        if (c.client == 0) {
            EXPECT_TRUE(calls.empty());
            continue;
        }
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].server, &server);
        EXPECT_EQ(calls[0].arg, &first_tag);
        EXPECT_EQ(calls[0].client_id, c.client);
        EXPECT_EQ(calls[0].msg, "radiostats");
        EXPECT_EQ(calls[0].id, c.id);
        EXPECT_EQ(calls[0].dat, c.dat);
    }
}

// Names are keyed by djb2 over signed chars (0xE9 counts as -23), and a
// later registration of a key wins.
TEST_F(PPSServerTest, HashCollisionLaterRegistrationWins) {
    EXPECT_EQ(PPSHash("\xE9"), 177550u);
    // 33 * 'A' + 'c' == 33 * 'B' + 'B': the two names share one key.
    ASSERT_EQ(PPSHash("Ac"), PPSHash("BB"));
    server.PPSAddCommand("Ac", Record, &first_tag);
    server.PPSAddCommand("BB", Record, &second_tag);
    Process("@control.5\nmsg::Ac\nid::1\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].arg, &second_tag);  // names are never compared
    EXPECT_EQ(calls[0].msg, "Ac");
}

// An unknown name warns, and without a default handler reaches nothing (with
// one: DaemonProcessTest.MissingPersistentStatusCostsTheWaitThenGoesOn).
TEST_F(PPSServerTest, UnknownNameWarnsAndWithoutADefaultHandlerReachesNothing) {
    testing::internal::CaptureStderr();
    Process("@control.5\nmsg::nosuchreport\nid::17\n");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("Unhandled message nosuchreport"));
    EXPECT_TRUE(calls.empty());
}

// The client registry.

TEST_F(PPSServerTest, ConnectRecordsCredentials) {
    Process("+@control.7.n0.p1234.u1000.g1000.g20.g30\n");
    ASSERT_EQ(server.clients().count(7), 1u);
    const ClientCredentials& client = *server.clients().at(7);
    EXPECT_EQ(client.node, 0);
    EXPECT_EQ(client.pid, 1234);
    EXPECT_EQ(client.uid, 1000);
    EXPECT_EQ(client.gid, 1000);
    EXPECT_EQ(client.ngroups, 2u);
    EXPECT_EQ(client.groups[0], 20);
    EXPECT_EQ(client.groups[1], 30);
    EXPECT_TRUE(calls.empty());
}

TEST_F(PPSServerTest, ConnectAgainReplacesOrRemovesAndDisconnectForgets) {
    Process("+@control.7.n0.p1234.u1000.g1000.g20.g30\n");
    Process("+@control.7.x5.p99.zz.u5\n");  // unknown field letters are skipped
    const ClientCredentials& client = *server.clients().at(7);
    EXPECT_EQ(client.pid, 99);
    EXPECT_EQ(client.uid, 5);
    EXPECT_EQ(client.gid, 0);
    EXPECT_EQ(client.ngroups, 0u);
    Process("+@control.8.n0.p1235.u1000.g1000\n");
    Process("+@control.abc.p5\n");  // letters for an id: ignored
    Process("+@control.7\n");       // no fields: removed
    EXPECT_EQ(server.clients().count(7), 0u);
    Process("+@control.7.p3\n");
    Process("-@control.7\n");
    EXPECT_EQ(server.clients().count(7), 0u);
    EXPECT_EQ(server.clients().size(), 1u);  // client 8 only
}

TEST_F(PPSServerTest, GroupOverflowPastEightLoggedAndDropped) {
    SlogCapture capture;
    std::string line = "+@control.7.n0.p1234.u1000.g1000";
    for (int g = 1; g <= 10; ++g) line += ".g" + std::to_string(100 + g);
    Process(line + "\n");
    const ClientCredentials& client = *server.clients().at(7);
    EXPECT_EQ(client.gid, 1000);
    ASSERT_EQ(client.ngroups, 8u);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(client.groups[i], 101 + i);

    std::vector<SlogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].opcode, kPPSServerLogOpcode);
    EXPECT_EQ(lines[0].severity, SLOG_ERROR);
    EXPECT_EQ(lines[0].text,
              "PPSServer::PPSProcess: ngroup count for pid[1234] EXCEEDED, gid[109] dropped");
    EXPECT_EQ(lines[1].text,
              "PPSServer::PPSProcess: ngroup count for pid[1234] EXCEEDED, gid[110] dropped");
}

TEST_F(PPSServerTest, ConnectAndRequestInOneRead) {
    Process("+@control.7.n0.p1234.u1000.g1000\n@control.7\nmsg::radiostats\nid::3\n");
    EXPECT_EQ(server.clients().count(7), 1u);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].client_id, 7u);
}

}  // namespace
