// The log mask against a DIAG peer: modemsim's DIAG side in this process,
// on a socket of its own, records every set-mask command it receives, and
// the capture builder makes replay files. Checks the exact requests, the
// log lines and the packets that reach the store.
#include "diaglog/dm_log_mask.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

#include "diaglog/log_snapshot_store.h"
#include "platform/dmux/kora_dmc.h"
#include "platform/qnx/slogf.h"
#include "testsupport/child_process.h"
#include "testsupport/diag_capture_builder.h"
#include "tools/modemsim/diag_side.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The requests of a switch-on: equipment id, last item, nonzero mask bytes.
struct ExpectedRequest {
    uint32_t equipment_id;
    uint32_t last_item;
    std::map<size_t, uint8_t> mask;
};
const ExpectedRequest kSwitchOn[] = {
    {7, 0x74FF, {{38, 0x63}}},
    {4,
     0x4777,
     {{0, 0x31},
      {33, 0x10},
      {34, 0x43},
      {36, 0xA0},
      {39, 0x05},
      {42, 0x40},
      {44, 0x20},
      {67, 0x10},
      {68, 0x02}}},
    {11,
     0xB210,
     {{16, 0x82}, {18, 0x82}, {24, 0x04}, {29, 0x40}, {47, 0x82}, {48, 0x20}, {51, 0x08}}},
};

Bytes MaskBytes(const std::map<size_t, uint8_t>& set) {
    Bytes mask(479, 0);
    for (const auto& [index, value] : set) mask[index] = value;
    return mask;
}

using rt::test::Eventually;

uint8_t RrcState() {
    return g_log_snapshot_store.View(0x4125).Get(log_layout::RrcState::kState);
}
std::vector<uint8_t> RrcSnapshot() {
    SnapshotView view = g_log_snapshot_store.View(0x4125);
    auto s = view.bytes();
    return std::vector<uint8_t>(s.begin(), s.end());
}
bool HasRrcPacket() {
    return g_log_snapshot_store.View(0x4125).has_packet();
}

class DmLogMaskTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetDmLogMaskState();
        g_log_snapshot_store.Reset();
    }
    void TearDown() override {
        uint32_t id = 1;
        kora_dmc_con_release(&id);
        ResetDmLogMaskState();
        g_log_snapshot_store.Reset();
        unsetenv("DIAG_DEVICE");
    }
    // Starts a DIAG peer with this scenario section and points DIAG_DEVICE at it.
    void StartPeer(nlohmann::json section = nlohmann::json::object(), std::string capture = "") {
        std::string endpoint = "unix:" + dir.file("diag.sock");
        peer = std::make_unique<modemsim::DiagSide>(endpoint, capture, section);
        std::string error;
        ASSERT_TRUE(peer->Start(&error)) << error;
        setenv("DIAG_DEVICE", endpoint.c_str(), 1);
    }

    rt::test::TempDir dir;
    std::unique_ptr<modemsim::DiagSide> peer;
};

TEST_F(DmLogMaskTest, SwitchOnSendsTheThreeGroupMasksExactly) {
    StartPeer({{"rrc_states", nlohmann::json::array()}});
    SetTavoraLogMask("1");
    EXPECT_EQ(dm_client_connected, 1);
    auto received = peer->ReceivedMasks();
    ASSERT_EQ(received.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(received[i].equipment_id, kSwitchOn[i].equipment_id) << i;
        EXPECT_EQ(received[i].last_item, kSwitchOn[i].last_item) << i;
        EXPECT_EQ(received[i].mask, MaskBytes(kSwitchOn[i].mask)) << i;
        EXPECT_EQ(8 + received[i].mask.size(), 487u);
    }
    EXPECT_EQ(Bytes(dm_log_mask, dm_log_mask + 479), Bytes(479, 0));

    SetTavoraLogMask("0");
    EXPECT_EQ(dm_client_connected, 0);
    received = peer->ReceivedMasks();
    ASSERT_EQ(received.size(), 6u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(received[3 + i].equipment_id, kSwitchOn[i].equipment_id);
        EXPECT_EQ(received[3 + i].last_item, kSwitchOn[i].last_item);
        EXPECT_EQ(received[3 + i].mask, Bytes(479, 0));
    }
}

TEST_F(DmLogMaskTest, SwitchOnLogLines) {
    StartPeer({{"rrc_states", nlohmann::json::array()}});
    SlogCapture log;
    SetTavoraLogMask("1");
    auto texts = log.texts();
    ASSERT_GE(texts.size(), 4u);
    EXPECT_EQ(texts[0], "              SetTavoraLogMask : Tavora: DM Client Init succeeded!!");
    EXPECT_EQ(texts[1], "              SetTavoraLogMask : Tavora: DM Mask is ON ");
    // The UMTS group: four codes, each marked valid, then the send.
    std::vector<std::string> umts = {
        "            DM_log_config_mask : Tavora: Log code 0x7130  ",
        "            DM_log_config_mask : Tavora: LOG CODE IS VALID 7130 ",
        "            DM_log_config_mask : Tavora: Log code 0x7131  ",
        "            DM_log_config_mask : Tavora: LOG CODE IS VALID 7131 ",
        "            DM_log_config_mask : Tavora: Log code 0x7136  ",
        "            DM_log_config_mask : Tavora: LOG CODE IS VALID 7136 ",
        "            DM_log_config_mask : Tavora: Log code 0x7135  ",
        "            DM_log_config_mask : Tavora: LOG CODE IS VALID 7135 ",
        "             DM_Set_log_config : Tavora: size of dm_log_mask 479 ",
        "             DM_Set_log_config : Tavora: set mask equipid 7 ",
        "             DM_Set_log_config : Tavora: lastitem 0x74FF ",
        "             DM_Set_log_config : Tavora: before dm_con_set_log_config() sent to DM "
        "Consumer! ",
        "             DM_Set_log_config : Tavora: op_data size 487 ",
        "             DM_Set_log_config : Tavora: after dm_con_set_log_config() sent to DM "
        "Consumer! ",
        "             DM_Set_log_config : Tavora: set_log_status 0 ",
        "          Tavora_Initialize_DM : Tavora: UMTS Log Config sent successfully ",
    };
    ASSERT_GE(texts.size(), 2 + umts.size());
    EXPECT_EQ(std::vector<std::string>(texts.begin() + 2, texts.begin() + 2 + umts.size()), umts);
    EXPECT_TRUE(log.contains(
        "          Tavora_Initialize_DM : Tavora: WCDMA Log Config sent successfully "));
    EXPECT_TRUE(
        log.contains("          Tavora_Initialize_DM : Tavora: LTE Log Config sent successfully "));
    // 2 + (4 + 15 + 10) codes x 2 lines + 3 sends x 7 lines + 3 results
    EXPECT_EQ(texts.size(), 2u + 29u * 2u + 3u * 7u + 3u);
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.opcode, 10000);
        EXPECT_EQ(line.severity, 6);
    }
}

TEST_F(DmLogMaskTest, RefusedMasksLogEachGroupsFailureAndStayOn) {
    StartPeer({{"status", 1}, {"rrc_states", nlohmann::json::array()}});
    SlogCapture log;
    SetTavoraLogMask("1");
    EXPECT_EQ(dm_client_connected, 1);
    EXPECT_TRUE(log.contains("             DM_Set_log_config : Tavora: set_log_status 1 "));
    EXPECT_TRUE(log.contains("          Tavora_Initialize_DM : Tavora: UMTS Log Config failed "));
    EXPECT_TRUE(log.contains("          Tavora_Initialize_DM : Tavora: WCDMA Log Config failed "));
    EXPECT_TRUE(log.contains("          Tavora_Initialize_DM : Tavora: LTE Log Config failed "));
    EXPECT_EQ(peer->ReceivedMasks().size(), 3u);
}

TEST_F(DmLogMaskTest, NoPeerMeansInitFailsAndALaterOneTriesAgain) {
    setenv("DIAG_DEVICE", ("unix:" + dir.file("nobody.sock")).c_str(), 1);
    SlogCapture log;
    SetTavoraLogMask("1");
    EXPECT_EQ(dm_client_connected, 0);
    EXPECT_EQ(log.texts(),
              std::vector<std::string>{
                  "              SetTavoraLogMask : ERROR: Tavora: DM Client Init failed!!"});
    StartPeer({{"rrc_states", nlohmann::json::array()}});
    SetTavoraLogMask("1");
    EXPECT_EQ(dm_client_connected, 1);
    EXPECT_EQ(peer->ReceivedMasks().size(), 3u);
}

TEST_F(DmLogMaskTest, TextsThatAreNotAnEdgeDoNothing) {
    StartPeer({{"rrc_states", nlohmann::json::array()}});
    SlogCapture log;
    SetTavoraLogMask("0");  // off while off
    for (const char* text : {"yes", "01", "", " 1", "1 "}) SetTavoraLogMask(text);
    EXPECT_TRUE(log.texts().empty());
    EXPECT_EQ(dm_client_connected, 0);
    SetTavoraLogMask("1");
    log.clear();
    SetTavoraLogMask("1");  // on while on
    EXPECT_TRUE(log.texts().empty());
    EXPECT_EQ(peer->ReceivedMasks().size(), 3u);
}

TEST_F(DmLogMaskTest, ScenarioPacketsFillTheStoreOnlyWhileOn) {
    StartPeer({{"rrc_states", {{{"state", 3}, {"hold_ms", 60000}}}}, {"rrc_period_ms", 20}});
    SetTavoraLogMask("1");
    ASSERT_TRUE(Eventually(HasRrcPacket));
    EXPECT_EQ(RrcState(), 3);
    SetTavoraLogMask("0");
    uint64_t sent = peer->PacketsSent();
    // Each packet carries its own timestamp: the snapshot, timestamp and
    // all, must not change once the mask is off.
    std::vector<uint8_t> last = RrcSnapshot();
    // The peer saw the zero masks and the connection go: nothing more flows.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(peer->PacketsSent(), sent);
    EXPECT_EQ(RrcSnapshot(), last);
    EXPECT_EQ(last[12], 3);  // the last snapshot stays
}

TEST_F(DmLogMaskTest, CaptureFileReplayDeliversValidPacketsOfEnabledCodes) {
    // state 0, state 3 (last valid), then state 5 with a broken CRC, plus a
    // code outside the mask and one on a second subscription.
    rt::test::DiagCaptureBuilder capture;
    capture.Log(0x4125, {0}, rt::test::DiagTimestampMs(0))
        .Log(0xB0C0, {1, 2, 3})
        .Log(0x4125, {3}, rt::test::DiagTimestampMs(5), 2)
        .LogWithBadCrc(0x4125, {5}, rt::test::DiagTimestampMs(10));
    std::string file = dir.file("rrc.qmdl");
    ASSERT_TRUE(capture.WriteTo(file));
    setenv("DIAG_DEVICE", ("file:" + file).c_str(), 1);
    SetTavoraLogMask("1");
    ASSERT_EQ(dm_client_connected, 1);
    kora_dmc_stats stats{};
    ASSERT_TRUE(Eventually([&] {
        kora_dmc_get_stats(&stats);
        return stats.replay_passes == 1;
    }));
    EXPECT_EQ(stats.frames_good, 3u);
    EXPECT_EQ(stats.frames_bad, 1u);
    EXPECT_EQ(stats.log_packets, 3u);
    EXPECT_EQ(stats.delivered, 2u);
    EXPECT_EQ(RrcState(), 3);
}

TEST_F(DmLogMaskTest, CaptureThroughThePeerWithABrokenFrame) {
    rt::test::DiagCaptureBuilder capture;
    capture.Log(0x4125, {0}).Log(0x4125, {3}).LogWithBadCrc(0x4125, {5});
    std::string file = dir.file("rrc.qmdl");
    ASSERT_TRUE(capture.WriteTo(file));
    StartPeer({{"capture_pace", "fast"}, {"capture_loop", false}, {"capture_after_masks", 3}},
              file);
    SetTavoraLogMask("1");
    kora_dmc_stats stats{};
    ASSERT_TRUE(Eventually([&] {
        kora_dmc_get_stats(&stats);
        return stats.frames_bad == 1;
    }));
    EXPECT_EQ(stats.log_packets, 2u);
    EXPECT_EQ(RrcState(), 3);
}

}  // namespace
