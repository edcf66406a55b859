// A capture replayed through the DM library loses nothing to the order or
// the pace of the client's mask requests: a code enabled after the replay
// went past its packets (here: after the whole pass) still gets them, in
// the capture's order, and the codes enabled before get theirs once.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/dmux/kora_dmc.h"
#include "testsupport/child_process.h"
#include "testsupport/diag_capture_builder.h"
#include "testsupport/diag_modem_peer.h"

namespace {

using rt::test::DeliveredPackets;

std::vector<uint8_t> MaskRequest(uint32_t equipment_id, uint16_t code) {
    std::vector<uint8_t> request(KORA_DMC_LOG_CONFIG_SIZE, 0);
    const uint32_t last_item = 0xFFF;
    for (int i = 0; i < 4; ++i) {
        request[i] = static_cast<uint8_t>(equipment_id >> (8 * i));
        request[4 + i] = static_cast<uint8_t>(last_item >> (8 * i));
    }
    const uint16_t item = code & 0xFFF;
    request[8 + item / 8] = static_cast<uint8_t>(1u << (item % 8));
    return request;
}

TEST(CaptureReplay, CodeEnabledAfterThePassStillGetsItsPackets) {
    rt::test::TempDir dir;
    rt::test::DiagCaptureBuilder capture;
    capture.Log(0x4125, {1}).Log(0x713A, {10}).Log(0x4125, {2}).Log(0x713A, {11}).Log(0x4125, {3});
    std::string path = dir.file("late.qmdl");
    ASSERT_TRUE(capture.WriteTo(path));
    ::setenv("DIAG_DEVICE", ("file:" + path).c_str(), 1);

    DeliveredPackets delivered;
    uint32_t client = KORA_DMC_CLIENT_ID, connection = 0, registration = 0, status = 0;
    ASSERT_EQ(kora_dmc_con_init(1, &connection, &client), 0);
    ASSERT_EQ(kora_dmc_log_init(client, DeliveredPackets::Collect, &registration, &delivered), 0);
    auto early = MaskRequest(4, 0x4125);
    ASSERT_EQ(kora_dmc_set_log_config(client, KORA_DMC_OP_SET_LOG_MASK, early.data(),
                                      KORA_DMC_LOG_CONFIG_SIZE, &status),
              0);
    ASSERT_TRUE(rt::test::Eventually([] {
        kora_dmc_stats stats{};
        return kora_dmc_get_stats(&stats) == 0 && stats.replay_passes == 1;
    }));
    ASSERT_EQ(delivered.count(), 3u);

    auto late = MaskRequest(7, 0x713A);
    ASSERT_EQ(kora_dmc_set_log_config(client, KORA_DMC_OP_SET_LOG_MASK, late.data(),
                                      KORA_DMC_LOG_CONFIG_SIZE, &status),
              0);
    ASSERT_TRUE(delivered.WaitFor(5));
    kora_dmc_con_release(&client);
    EXPECT_EQ(delivered.codes(), (std::vector<uint32_t>{0x4125, 0x4125, 0x4125, 0x713A, 0x713A}));
    std::lock_guard<std::mutex> hold(delivered.mutex);
    EXPECT_EQ(delivered.packets[3].second.back(), 10);
    EXPECT_EQ(delivered.packets[4].second.back(), 11);
}

}  // namespace
