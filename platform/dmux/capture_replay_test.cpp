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

// A mask changed during a pass applies from the next packet on, as with a
// modem: here it changes inside the delivery of the first packet, so no
// timing is involved. Switching a code off stops its later packets;
// switching one on delivers its next packet in place, once.
TEST(CaptureReplay, MaskChangedDuringThePassAppliesFromTheNextPacket) {
    struct Case {
        std::vector<uint8_t> change;
        std::vector<uint32_t> expected;
    };
    const Case cases[] = {
        {MaskRequest(4, 0x4000), {0x4125}},
        {MaskRequest(7, 0x713A), {0x4125, 0x713A, 0x4125, 0x713A, 0x4125}},
    };
    for (const Case& c : cases) {
        rt::test::TempDir dir;
        rt::test::DiagCaptureBuilder capture;
        capture.Log(0x4125, {1})
            .Log(0x713A, {10})
            .Log(0x4125, {2})
            .Log(0x713A, {11})
            .Log(0x4125, {3});
        std::string path = dir.file("during.qmdl");
        ASSERT_TRUE(capture.WriteTo(path));
        ::setenv("DIAG_DEVICE", ("file:" + path).c_str(), 1);

        struct Changer {
            DeliveredPackets delivered;
            const std::vector<uint8_t>* change;
        } changer{{}, &c.change};
        auto collect = [](void* user_data, uint32_t code, const uint8_t* record, uint32_t length) {
            auto* self = static_cast<Changer*>(user_data);
            DeliveredPackets::Collect(&self->delivered, code, record, length);
            if (self->delivered.count() != 1) return;
            uint32_t status = 0;
            kora_dmc_set_log_config(KORA_DMC_CLIENT_ID, KORA_DMC_OP_SET_LOG_MASK,
                                    self->change->data(), KORA_DMC_LOG_CONFIG_SIZE, &status);
        };
        uint32_t client = KORA_DMC_CLIENT_ID, connection = 0, registration = 0, status = 0;
        ASSERT_EQ(kora_dmc_con_init(1, &connection, &client), 0);
        ASSERT_EQ(kora_dmc_log_init(client, collect, &registration, &changer), 0);
        // Only 0x4125 is on when the pass begins (one request, so no race).
        auto first = MaskRequest(4, 0x4125);
        ASSERT_EQ(kora_dmc_set_log_config(client, KORA_DMC_OP_SET_LOG_MASK, first.data(),
                                          KORA_DMC_LOG_CONFIG_SIZE, &status),
                  0);
        ASSERT_TRUE(rt::test::Eventually([] {
            kora_dmc_stats stats{};
            return kora_dmc_get_stats(&stats) == 0 && stats.replay_passes == 1;
        }));
        kora_dmc_con_release(&client);
        EXPECT_EQ(changer.delivered.codes(), c.expected);
    }
}

}  // namespace
