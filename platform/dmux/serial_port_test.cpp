// The DM library on a serial DIAG port. A pseudo-terminal stands in for the
// modem's port: the library opens its slave side as DIAG_DEVICE (raw line
// settings and all), and the test plays the modem on the master side.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
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

namespace {

struct Delivered {
    std::mutex mutex;
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> packets;
};

void Collect(void* user_data, uint32_t code, const uint8_t* record, uint32_t length) {
    auto* delivered = static_cast<Delivered*>(user_data);
    std::lock_guard<std::mutex> hold(delivered->mutex);
    delivered->packets.emplace_back(code, std::vector<uint8_t>(record, record + length));
}

bool WriteAll(int fd, const std::vector<uint8_t>& bytes) {
    return ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

// Reads the port until one set-mask command has come, and answers it.
std::optional<dmux::LogConfigSetMask> AnswerOneMaskCommand(int master) {
    dmux::HdlcDeframer deframer;
    std::optional<dmux::LogConfigSetMask> request;
    uint8_t buffer[4096];
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!request && std::chrono::steady_clock::now() < deadline) {
        pollfd pfd{master, POLLIN, 0};
        if (::poll(&pfd, 1, 100) <= 0) continue;
        ssize_t n = ::read(master, buffer, sizeof buffer);
        if (n <= 0) break;
        deframer.Feed(buffer, static_cast<size_t>(n), [&](std::span<const uint8_t> body) {
            request = dmux::ParseLogConfigSetMask(body);
        });
    }
    if (request) {
        WriteAll(master,
                 dmux::HdlcEncode(dmux::BuildLogConfigResponse(
                     {dmux::kLogConfigSetMask, 0, request->equipment_id, request->last_item})));
    }
    return request;
}

TEST(DiagSerialPort, MaskCommandIsAnsweredAndOnlyEnabledCodesAreDelivered) {
    int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0) GTEST_SKIP() << "no pseudo-terminals on this machine: " << std::strerror(errno);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    ::setenv("DIAG_DEVICE", ::ptsname(master), 1);

    uint32_t connection = 0, client_id = KORA_DMC_CLIENT_ID, registration = 0;
    ASSERT_EQ(kora_dmc_con_init(1, &connection, &client_id), 0);
    Delivered delivered;
    ASSERT_EQ(kora_dmc_log_init(client_id, Collect, &registration, &delivered), 0);

    // Equipment 4 with only 0x4125 enabled: item 0x125 is bit 5 of byte 36.
    std::vector<uint8_t> request(KORA_DMC_LOG_CONFIG_SIZE, 0);
    request[0] = 4;
    request[4] = 0x77;
    request[5] = 0x47;
    request[8 + 36] = 0x20;
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
    // only packet delivered.
    auto frame = [](uint16_t code, uint8_t state) {
        return dmux::HdlcEncode(
            dmux::BuildLogPacketBody(dmux::BuildLogRecord(code, 0, std::vector<uint8_t>{state})));
    };
    ASSERT_TRUE(WriteAll(master, frame(0x4126, 1)));
    ASSERT_TRUE(WriteAll(master, frame(0x4125, 3)));
    for (int i = 0; i < 500; ++i) {
        {
            std::lock_guard<std::mutex> hold(delivered.mutex);
            if (!delivered.packets.empty()) break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    uint32_t release_id = KORA_DMC_CLIENT_ID;
    EXPECT_EQ(kora_dmc_con_release(&release_id), 0);
    ASSERT_EQ(delivered.packets.size(), 1u);
    EXPECT_EQ(delivered.packets[0].first, 0x4125u);
    ASSERT_EQ(delivered.packets[0].second.size(), 13u);  // 12-byte header, one payload byte
    EXPECT_EQ(delivered.packets[0].second[12], 3);
    ::close(master);
    ::unsetenv("DIAG_DEVICE");
}

}  // namespace
