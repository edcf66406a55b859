// The DM library on a serial DIAG port. A pseudo-terminal stands in for the
// modem's port: the library opens its slave side as DIAG_DEVICE (raw line
// settings and all), and the test plays the modem on the master side.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/hdlc.h"
#include "platform/dmux/kora_dmc.h"
#include "testsupport/diag_modem_peer.h"

namespace {

using rt::test::AnswerOneMaskCommand;
using rt::test::DeliveredPackets;
using rt::test::LogFrame;
using rt::test::WriteAll;

TEST(DiagSerialPort, MaskCommandIsAnsweredAndOnlyEnabledCodesAreDelivered) {
    int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0) GTEST_SKIP() << "no pseudo-terminals on this machine: " << std::strerror(errno);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    ::setenv("DIAG_DEVICE", ::ptsname(master), 1);

    uint32_t connection = 0, client_id = KORA_DMC_CLIENT_ID, registration = 0;
    ASSERT_EQ(kora_dmc_con_init(1, &connection, &client_id), 0);
    // A new pseudo-terminal starts cooked; the library made the line raw.
    termios line{};
    ASSERT_EQ(::tcgetattr(master, &line), 0);
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(line.c_iflag & (ICRNL | IXON | ISTRIP), 0u);
    EXPECT_EQ(line.c_oflag & OPOST, 0u);
    EXPECT_EQ(line.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    DeliveredPackets delivered;
    ASSERT_EQ(kora_dmc_log_init(client_id, DeliveredPackets::Collect, &registration, &delivered),
              0);

    std::vector<uint8_t> request = rt::test::Only4125MaskRequest();
    std::optional<dmux::LogConfigSetMask> received;
    std::thread modem([&] { received = AnswerOneMaskCommand(master); });
    uint32_t status = 99;
    EXPECT_EQ(kora_dmc_set_log_config(client_id, KORA_DMC_OP_SET_LOG_MASK, request.data(),
                                      KORA_DMC_LOG_CONFIG_SIZE, &status),
              0);
    modem.join();
    EXPECT_EQ(status, 0u);
    ASSERT_TRUE(received.has_value());
    EXPECT_EQ(received->equipment_id, 4u);
    EXPECT_EQ(received->last_item, 0x4777u);
    EXPECT_EQ(received->mask, std::vector<uint8_t>(request.begin() + 8, request.end()));

    // 0x4126 is not enabled and comes first; 0x4125 behind it must be the
    // only packet delivered, its payload a carriage return that a cooked
    // line would have turned into a newline.
    ASSERT_TRUE(WriteAll(master, LogFrame(0x4126, 1)));
    ASSERT_TRUE(WriteAll(master, LogFrame(0x4125, '\r')));
    delivered.WaitFor(1);
    uint32_t release_id = KORA_DMC_CLIENT_ID;
    EXPECT_EQ(kora_dmc_con_release(&release_id), 0);
    ASSERT_EQ(delivered.packets.size(), 1u);
    EXPECT_EQ(delivered.packets[0].first, 0x4125u);
    ASSERT_EQ(delivered.packets[0].second.size(), 13u);  // 12-byte header, one payload byte
    EXPECT_EQ(delivered.packets[0].second[12], '\r');
    ::close(master);
    ::unsetenv("DIAG_DEVICE");
}

}  // namespace
