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
int default_tag = 3;

class PPSServerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        calls.clear();
        server.PPSAddCommand("radiostats", Record, &first_tag);
    }
    void Process(std::string text) { server.PPSProcess(text.data()); }

    PPSServer server;
};

TEST(PPSHashTest, IsDjb2) {
    EXPECT_EQ(PPSHash(""), 5381u);
    EXPECT_EQ(PPSHash("a"), 5381u * 33 + 'a');
    EXPECT_EQ(PPSHash("ab"), (5381u * 33 + 'a') * 33 + 'b');
}

TEST(PPSHashTest, WrapsModulo2To32) {
    uint32_t expected = 5381;
    for (char c : std::string("radionwinfo_and_a_long_tail")) expected = expected * 33 + c;
    EXPECT_EQ(PPSHash("radionwinfo_and_a_long_tail"), expected);
}

TEST(PPSHashTest, HighBytesCountAsNegative) {
    // 0xE9 is -23 as a signed char: 5381 * 33 - 23.
    EXPECT_EQ(PPSHash("\xE9"), 177550u);
    EXPECT_NE(PPSHash("\xE9"), 5381u * 33 + 0xE9u);
}

TEST(PPSHashTest, PlainAsciiSameAsUnsigned) {
    for (const char* name : {"radionwinfo", "radiostats", "umtsopinfo", "hspaopinfo", "lteopinfo",
                             "bearer", "tchtxpwr", "3gpp2info"}) {
        uint32_t unsigned_hash = 5381;
        for (const char* c = name; *c; ++c)
            unsigned_hash = unsigned_hash * 33 + static_cast<unsigned char>(*c);
        EXPECT_EQ(PPSHash(name), unsigned_hash) << name;
    }
}

TEST_F(PPSServerTest, RequestReachesItsHandler) {
    Process("@control.5\nmsg::radiostats\nid::17\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].server, &server);
    EXPECT_EQ(calls[0].arg, &first_tag);
    EXPECT_EQ(calls[0].client_id, 5u);
    EXPECT_EQ(calls[0].msg, "radiostats");
    EXPECT_EQ(calls[0].id, "17");
    EXPECT_EQ(calls[0].dat, std::nullopt);
}

TEST_F(PPSServerTest, JsonDatPassedThroughAsText) {
    Process("@control.5\nmsg::radiostats\nid::17\ndat:json:{\"a\":1}\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].dat, "{\"a\":1}");
}

TEST_F(PPSServerTest, StringDatPassedThrough) {
    Process("@control.5\nmsg::radiostats\nid::17\ndat::some text\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].dat, "some text");
}

TEST_F(PPSServerTest, OtherAttributesIgnored) {
    Process("@control.5\nmsg::radiostats\nfoo::bar\nid::17\nres::x\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].id, "17");
}

struct ClientIdCase {
    const char* name;
    const char* object_line;
    std::optional<uint64_t> dispatched_to;
};
// Shown by name in test listings instead of as raw bytes.
void PrintTo(const ClientIdCase& c, std::ostream* os) {
    *os << c.name;
}

class ClientIdTest : public PPSServerTest, public ::testing::WithParamInterface<ClientIdCase> {};

TEST_P(ClientIdTest, ParsedFromObjectLine) {
    Process(std::string(GetParam().object_line) + "\nmsg::radiostats\nid::17\n");
    if (GetParam().dispatched_to) {
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].client_id, *GetParam().dispatched_to);
    } else {
        EXPECT_TRUE(calls.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ClientIdTest,
    ::testing::Values(ClientIdCase{"plain", "@control.5", 5},
                      ClientIdCase{"zero_is_no_client", "@control.0", std::nullopt},
                      ClientIdCase{"letters_after_dot", "@control.abc", std::nullopt},
                      ClientIdCase{"no_dot", "@control", std::nullopt},
                      ClientIdCase{"dot_at_end", "@control.", std::nullopt},
                      ClientIdCase{"largest_64_bit", "@control.18446744073709551615", UINT64_MAX},
                      ClientIdCase{"hex_prefix_read_base_0", "@control.0x1f", 31},
                      ClientIdCase{"number_stops_at_non_digit", "@control.12abc", 12},
                      ClientIdCase{"first_dot_decides", "@radio.ctrl.7", std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PPSServerTest, NoObjectLineNoDispatch) {
    Process("msg::radiostats\nid::17\n");
    EXPECT_TRUE(calls.empty());
}

TEST_F(PPSServerTest, MissingIdDropped) {
    Process("@control.5\nmsg::radiostats\n");
    EXPECT_TRUE(calls.empty());
}

TEST_F(PPSServerTest, MissingMsgDropped) {
    Process("@control.5\nid::17\n");
    EXPECT_TRUE(calls.empty());
}

TEST_F(PPSServerTest, EmptyTextDoesNothing) {
    Process("");
    EXPECT_TRUE(calls.empty());
}

TEST_F(PPSServerTest, TwoRequestsInOneReadDispatchOnceWithLastValues) {
    Process(
        "@control.5\nmsg::radiostats\nid::17\ndat::first\n"
        "@control.9\nmsg::radiostats\nid::18\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].client_id, 9u);
    EXPECT_EQ(calls[0].id, "18");
    EXPECT_EQ(calls[0].dat, "first");  // the last value seen of each attribute
}

TEST_F(PPSServerTest, MalformedLineEndsParsingButKeepsWhatCameBefore) {
    Process("@control.5\nmsg::radiostats\nid::17\nthis line has no colon\nid::99\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].id, "17");
}

TEST_F(PPSServerTest, SecondRegistrationOfANameWins) {
    server.PPSAddCommand("radiostats", Record, &second_tag);
    Process("@control.5\nmsg::radiostats\nid::17\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].arg, &second_tag);
}

TEST_F(PPSServerTest, HashCollisionLaterRegistrationWins) {
    // 33 * 'A' + 'c' == 33 * 'B' + 'B': the two names share one key.
    ASSERT_EQ(PPSHash("Ac"), PPSHash("BB"));
    server.PPSAddCommand("Ac", Record, &first_tag);
    server.PPSAddCommand("BB", Record, &second_tag);
    Process("@control.5\nmsg::Ac\nid::1\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].arg, &second_tag);  // names are never compared
    EXPECT_EQ(calls[0].msg, "Ac");
}

TEST_F(PPSServerTest, UnknownNameWarnsAndReachesDefaultHandler) {
    server.PPSSetDefaultHandler(Record, &default_tag);
    testing::internal::CaptureStderr();
    Process("@control.5\nmsg::nosuchreport\nid::17\n");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_THAT(err, ::testing::HasSubstr("Unhandled message nosuchreport"));
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].arg, &default_tag);
    EXPECT_EQ(calls[0].msg, "nosuchreport");
}

TEST_F(PPSServerTest, UnknownNameWithoutDefaultHandlerOnlyWarns) {
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

TEST_F(PPSServerTest, ConnectAgainReplacesRecord) {
    Process("+@control.7.n0.p1234.u1000.g1000.g20.g30\n");
    Process("+@control.7.p99.u5\n");
    const ClientCredentials& client = *server.clients().at(7);
    EXPECT_EQ(client.pid, 99);
    EXPECT_EQ(client.uid, 5);
    EXPECT_EQ(client.gid, 0);
    EXPECT_EQ(client.ngroups, 0u);
}

TEST_F(PPSServerTest, ConnectWithoutFieldsRemovesRecord) {
    Process("+@control.7.n0.p1234.u1000.g1000\n");
    Process("+@control.7\n");
    EXPECT_EQ(server.clients().count(7), 0u);
}

TEST_F(PPSServerTest, UnknownFieldLettersSkipped) {
    Process("+@control.7.x5.p42.zz.u3\n");
    const ClientCredentials& client = *server.clients().at(7);
    EXPECT_EQ(client.pid, 42);
    EXPECT_EQ(client.uid, 3);
}

TEST_F(PPSServerTest, DisconnectForgetsClient) {
    Process("+@control.7.n0.p1234.u1000.g1000\n");
    Process("+@control.8.n0.p1235.u1000.g1000\n");
    Process("-@control.7\n");
    EXPECT_EQ(server.clients().count(7), 0u);
    EXPECT_EQ(server.clients().count(8), 1u);
}

TEST_F(PPSServerTest, ConnectWithLettersForIdIgnored) {
    Process("+@control.abc.p5\n");
    EXPECT_TRUE(server.clients().empty());
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
