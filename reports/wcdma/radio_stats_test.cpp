// radiostats: the RRC state classification, the exact report text written
// to the status object and the reply, for each kind of state code.
#include "reports/wcdma/radio_stats.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "diaglog/log_snapshot_store.h"
#include "platform/pps/pps_client.h"
#include "reports/report_table.h"
#include "service/pps_server.h"
#include "service/tavora_context.h"
#include "testsupport/child_process.h"
#include "testsupport/diag_capture_builder.h"

namespace {

std::string ReadAvailable(int fd) {
    std::string out;
    char buf[4096];
    pollfd pfd{fd, POLLIN, 0};
    while (::poll(&pfd, 1, 500) > 0) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n <= 0) break;
        out.append(buf, static_cast<size_t>(n));
        pfd.revents = 0;
        if (::poll(&pfd, 1, 50) <= 0) break;
        pfd.revents = 0;
    }
    return out;
}

class RadioStatsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        g_log_snapshot_store.Reset();
        ASSERT_EQ(::pipe(status_pipe), 0);
        context.utra_fd = status_pipe[1];
        ASSERT_EQ(server.pps_create_server_object("/pps/test/control?server"), 0);
        client = pps_open("/pps/test/control", O_RDWR);
        ASSERT_GE(client, 0);
        ReadAvailable(client);
    }
    void TearDown() override {
        ::close(status_pipe[0]);
        ::close(status_pipe[1]);
        if (client >= 0) ::close(client);
        g_log_snapshot_store.Reset();
    }
    void StoreState(uint8_t state) {
        auto packet = rt::test::DiagLogRecord(0x4125, {state});
        DM_recv_log_packet_cb(nullptr, 0x4125, packet.data(), static_cast<uint32_t>(packet.size()));
    }
    // Runs the handler as client 5 with id 17 and returns what it wrote.
    std::string Report() {
        ReportHandlerFor("radiostats")(&server, &context, 5, "radiostats", "17", nullptr);
        return ReadAvailable(status_pipe[0]);
    }

    rt::test::PpsBroker broker;
    PPSServer server;
    TavoraContext context;
    int status_pipe[2] = {-1, -1};
    int client = -1;
};

TEST_F(RadioStatsTest, NoPacketYet) {
    EXPECT_EQ(Report(),
              "rrc_state::No data available!\n"
              "rrc_conn_state::No data available!\n"
              "rrc_release::No data available!\n"
              "rrc_reject::No data available!\n");
}

struct StateCase {
    uint8_t code;
    const char* report;
};
// Shown by its code in test listings instead of as raw bytes.
void PrintTo(const StateCase& c, std::ostream* os) {
    *os << "code " << static_cast<int>(c.code);
}

class RadioStatsStateTest : public RadioStatsTest,
                            public ::testing::WithParamInterface<StateCase> {};

TEST_P(RadioStatsStateTest, ClassifiesTheStateCode) {
    StoreState(GetParam().code);
    EXPECT_EQ(Report(), GetParam().report);
}

constexpr const char* kTail = "rrc_release::No data available!\nrrc_reject::No data available!\n";

INSTANTIATE_TEST_SUITE_P(
    Codes, RadioStatsStateTest,
    ::testing::Values(
        StateCase{0,
                  "rrc_state::RRC_Disconnected\nrrc_conn_state::No data available!\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        StateCase{1,
                  "rrc_state::RRC_Connecting\nrrc_conn_state::No data available!\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        StateCase{0xFF,
                  "rrc_state::Invalid\nrrc_conn_state::No data available!\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        StateCase{2,
                  "rrc_state::RRC_CONNECTED\nrrc_conn_state::CELL_FACH\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        StateCase{3,
                  "rrc_state::RRC_CONNECTED\nrrc_conn_state::CELL_DCH\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        StateCase{4,
                  "rrc_state::RRC_CONNECTED\nrrc_conn_state::CELL_PCH\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        StateCase{5,
                  "rrc_state::RRC_CONNECTED\nrrc_conn_state::URA_PCH\n"
                  "rrc_release::No data available!\nrrc_reject::No data available!\n"},
        // 6 to 254: neither state attribute
        StateCase{6, kTail}, StateCase{200, kTail}, StateCase{254, kTail}),
    [](const auto& info) { return "code_" + std::to_string(info.param.code); });

TEST_F(RadioStatsTest, RepliesToTheClientWithItsRequest) {
    // The server learns our client id from the connect line.
    ASSERT_EQ(server.PPSRead(server.fd()), 0);
    ASSERT_EQ(server.clients().size(), 1u);
    uint64_t client_id = server.clients().begin()->first;
    StoreState(3);
    ReportHandlerFor("radiostats")(&server, &context, client_id, "radiostats", "17", nullptr);
    std::string reply = ReadAvailable(client);
    EXPECT_NE(reply.find("res::radiostats\n"), std::string::npos) << reply;
    EXPECT_NE(reply.find("id::17\n"), std::string::npos) << reply;
    EXPECT_EQ(reply.find("dat"), std::string::npos) << reply;
    EXPECT_EQ(reply.find("err"), std::string::npos) << reply;
}

}  // namespace
