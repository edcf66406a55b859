// The DM library when its DIAG source goes away and comes back: it opens
// the source again by itself and sends the masks in force, so log capture
// resumes without the daemon asking. The test plays the modem on a unix
// socket that it closes, removes and listens on again.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/hdlc.h"
#include "platform/dmux/kora_dmc.h"
#include "testsupport/child_process.h"
#include "testsupport/diag_modem_peer.h"

namespace {

constexpr int kWaitMs = 5000;

using rt::test::AnswerOneMaskCommand;
using rt::test::DeliveredPackets;
using rt::test::LogFrame;
using rt::test::WriteAll;

int Listen(const std::string& path) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(fd, 4) != 0) {
        if (fd >= 0) ::close(fd);
        return -1;
    }
    return fd;
}

int AcceptWithin(int listener, int timeout_ms) {
    pollfd pfd{listener, POLLIN, 0};
    if (::poll(&pfd, 1, timeout_ms) <= 0) return -1;
    return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
}

TEST(DiagReconnect, SourceThatComesBackGetsTheMasksAgainAndDeliveryResumes) {
    rt::test::TempDir dir;
    std::string path = dir.file("diag.sock");
    int listener = Listen(path);
    ASSERT_GE(listener, 0);
    ::setenv("DIAG_DEVICE", ("unix:" + path).c_str(), 1);

    uint32_t connection = 0, client_id = KORA_DMC_CLIENT_ID, registration = 0;
    ASSERT_EQ(kora_dmc_con_init(1, &connection, &client_id), 0);
    int peer = AcceptWithin(listener, kWaitMs);
    ASSERT_GE(peer, 0);
    DeliveredPackets delivered;
    ASSERT_EQ(kora_dmc_log_init(client_id, DeliveredPackets::Collect, &registration, &delivered),
              0);

    std::vector<uint8_t> request = rt::test::Only4125MaskRequest();
    std::thread modem([&] { AnswerOneMaskCommand(peer); });
    uint32_t status = 99;
    EXPECT_EQ(kora_dmc_set_log_config(client_id, KORA_DMC_OP_SET_LOG_MASK, request.data(),
                                      KORA_DMC_LOG_CONFIG_SIZE, &status),
              0);
    modem.join();
    ASSERT_TRUE(WriteAll(peer, LogFrame(0x4125)));
    ASSERT_TRUE(delivered.WaitFor(1));

    // The modem goes away (its socket with it) and comes back.
    ::close(peer);
    ::close(listener);
    ::unlink(path.c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    listener = Listen(path);
    ASSERT_GE(listener, 0);
    peer = AcceptWithin(listener, kWaitMs);
    ASSERT_GE(peer, 0) << "the library did not open the source again";
    std::optional<dmux::LogConfigSetMask> again = AnswerOneMaskCommand(peer);
    ASSERT_TRUE(again.has_value()) << "the masks in force were not sent again";
    EXPECT_EQ(again->equipment_id, 4u);
    EXPECT_EQ(again->last_item, 0x4777u);
    EXPECT_EQ(again->mask, std::vector<uint8_t>(request.begin() + 8, request.end()));
    ASSERT_TRUE(WriteAll(peer, LogFrame(0x4126)));  // not enabled
    ASSERT_TRUE(WriteAll(peer, LogFrame(0x4125)));
    EXPECT_TRUE(delivered.WaitFor(2));

    uint32_t release_id = KORA_DMC_CLIENT_ID;
    EXPECT_EQ(kora_dmc_con_release(&release_id), 0);
    EXPECT_EQ(delivered.codes(), (std::vector<uint32_t>{0x4125, 0x4125}));
    ::close(peer);
    ::close(listener);
    ::unsetenv("DIAG_DEVICE");
}

}  // namespace
