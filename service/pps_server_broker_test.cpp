// PPSServer on a real broker, in this process: the server object opened
// through pps_open, clients connecting, requests and replies.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "service/pps_server.h"
#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"

namespace {

using ::testing::HasSubstr;

constexpr const char* kServerPath = "/pps/services/radioctrl/modem0/diag/control?server";

std::vector<std::string> requests;

void Echo(PPSServer* server, void*, uint64_t client_id, const char* msg, const char* id,
          const char* dat) {
    requests.push_back(msg);
    server->PPSReply(kServerPath, client_id, msg, id, dat, 0, false);
}

class PPSServerBrokerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        requests.clear();
        ASSERT_EQ(server.pps_create_server_object(kServerPath), 0);
        server.PPSAddCommand("radiostats", Echo, nullptr);
    }
    // Reads and processes whatever the broker delivers within 2 s.
    bool ServeOne() {
        pollfd entry{server.fd(), POLLIN, 0};
        if (::poll(&entry, 1, 2000) <= 0) return false;
        return server.PPSRead(server.fd()) == 0;
    }

    rt::test::PpsBroker broker;
    PPSServer server;
};

TEST_F(PPSServerBrokerTest, ServerDescriptorIsCloseOnExec) {
    EXPECT_NE(::fcntl(server.fd(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(PPSServerBrokerTest, ConnectingClientIsRecordedWithItsCredentials) {
    rt::test::PpsClientConnection client(rt::test::kControlObject);
    ASSERT_TRUE(client.ok());
    for (int i = 0; i < 5 && server.clients().empty(); ++i) ASSERT_TRUE(ServeOne());
    ASSERT_EQ(server.clients().size(), 1u);
    const ClientCredentials& record = *server.clients().begin()->second;
    EXPECT_EQ(record.pid, ::getpid());
    EXPECT_EQ(record.uid, static_cast<int32_t>(::getuid()));
    EXPECT_EQ(record.gid, static_cast<int32_t>(::getgid()));
}

TEST_F(PPSServerBrokerTest, DisconnectingClientIsForgotten) {
    {
        rt::test::PpsClientConnection client(rt::test::kControlObject);
        ASSERT_TRUE(client.ok());
        for (int i = 0; i < 5 && server.clients().empty(); ++i) ASSERT_TRUE(ServeOne());
        ASSERT_EQ(server.clients().size(), 1u);
    }
    for (int i = 0; i < 5 && !server.clients().empty(); ++i) ASSERT_TRUE(ServeOne());
    EXPECT_TRUE(server.clients().empty());
}

TEST_F(PPSServerBrokerTest, RequestAnsweredToItsClient) {
    rt::test::PpsClientConnection client(rt::test::kControlObject);
    ASSERT_TRUE(client.ok());
    ASSERT_TRUE(client.Write("msg::radiostats\nid::17\n"));
    for (int i = 0; i < 5 && requests.empty(); ++i) ASSERT_TRUE(ServeOne());
    ASSERT_EQ(requests.size(), 1u);
    std::string reply = client.Read(2000);
    EXPECT_THAT(reply, HasSubstr("res::radiostats\n"));
    EXPECT_THAT(reply, HasSubstr("id::17\n"));
    EXPECT_THAT(reply, ::testing::Not(HasSubstr("err:")));
}

}  // namespace
