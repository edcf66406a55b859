// The RLC section of lteopinfo: the bearer counts from the configuration
// list walk, the bearer tables it fills, and the status arrays that match
// statistics entries to bearers, in both directions, with counts past the
// tables and entries past the array.
#include "reports/lte/rlc_stats.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "diaglog/log_snapshot_store.h"
#include "service/report_writer.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::LinesStartingWith;
using rt::test::LogPacket;
using Json = nlohmann::ordered_json;
using Lines = std::vector<std::string>;

// A list entry as the configuration packet carries it; a type other than 1
// or 2 is a single stray byte.
struct ListEntry {
    uint8_t type;
    uint8_t cfg_idx;
    uint8_t kind;
};

// Packet byte 21 is 0, so rb_count sits at packet byte 24 and the list
// starts at 25.
void DeliverConfig(const RlcDirection& d, unsigned rb_count, const std::vector<ListEntry>& list) {
    LogPacket packet(d.config_code, 25 + d.list.area);
    packet.Set8(24, rb_count);
    size_t p = 25;
    for (const ListEntry& e : list) {
        packet.Set8(p, e.type).Set8(p + 3, e.cfg_idx).Set8(p + 4, e.kind);
        p += e.type == 1 ? d.list.type1_length : e.type == 2 ? d.list.type2_length : 1;
    }
    packet.Deliver();
}

struct StatsEntry {
    uint8_t cfg_idx;
    uint8_t mode = 1;
    uint32_t num_rst = 0;
};

size_t HeaderSize(const RlcDirection& d) {
    return d.stats_code == kRlcDownlink.stats_code ? 29 : 25;
}
size_t EntrySize(const RlcDirection& d) {
    return d.stats_code == kRlcDownlink.stats_code ? log_layout::RlcDlStats::kEntrySize
                                                   : log_layout::RlcUlStats::kEntrySize;
}

void DeliverStats(const RlcDirection& d, const std::vector<StatsEntry>& entries) {
    const size_t header = HeaderSize(d), size = EntrySize(d);
    LogPacket packet(d.stats_code, header + size * entries.size());
    packet.Set8(20, static_cast<unsigned>(entries.size()));
    for (size_t s = 0; s < entries.size(); ++s) {
        const size_t at = header + size * s;
        packet.Set8(at, entries[s].cfg_idx).Set8(at + 1, entries[s].mode);
        packet.Set32(at + 2, entries[s].num_rst);
    }
    packet.Deliver();
}

class RlcStatsTest : public testing::Test {
  protected:
    void SetUp() override { g_log_snapshot_store.Reset(); }
    void TearDown() override { g_log_snapshot_store.Reset(); }

    // The four steps in the report's order, as the report text.
    std::string Publish() {
        return rt::test::WrittenReport([](ReportWriter& report) {
            PublishRlcDlConfig(report);
            PublishRlcDlStatus(report);
            PublishRlcUlConfig(report);
            PublishRlcUlStatus(report);
        });
    }
    // The array attribute `name`, or null when the report has none.
    static Json Array(const std::string& report, const std::string& name) {
        Lines lines = LinesStartingWith(report, name + ":json:");
        if (lines.size() != 1) return nullptr;
        return Json::parse(lines[0].substr(name.size() + 6));
    }
    // The rb_cfg_idx of each object of an array, by its number.
    static std::vector<int> CfgIndexes(const Json& array) {
        std::vector<int> out;
        for (size_t k = 0; k < array.size(); ++k)
            out.push_back(array[k].value("rb_cfg_idx" + std::to_string(k + 1), -1));
        return out;
    }
};

struct ListCase {
    const char* name;
    const RlcDirection* direction;
    unsigned rb_count;
    std::vector<ListEntry> list;
    int srb;
    int drb;
    // (cfg_idx, kind) at positions 0 to 3 of the bearer tables.
    std::vector<std::pair<int, int>> tables;
};

TEST_F(RlcStatsTest, ConfigurationListWalk) {
    const RlcDirection* up = &kRlcUplink;
    const RlcDirection* down = &kRlcDownlink;
    constexpr int X = 0xFF;  // a position the walk did not fill
    const ListCase cases[] = {
        {"ul", up, 3, {{1, 1, 1}, {2, 3, 2}, {1, 4, 2}}, 1, 2, {{1, 1}, {3, 2}, {4, 2}, {X, X}}},
        // The same list downlink, where the types have other lengths.
        {"dl", down, 3, {{1, 1, 1}, {2, 3, 2}, {1, 4, 2}}, 1, 2, {{1, 1}, {3, 2}, {4, 2}, {X, X}}},
        {"rb_count 0", up, 0, {{1, 1, 1}}, 0, 0, {{X, X}}},
        // A stray type byte holds the walk at that byte for the remaining positions.
        {"t5", up, 4, {{1, 7, 1}, {5, 0, 0}, {1, 8, 2}}, 1, 0, {{7, 1}, {X, X}, {X, X}, {X, X}}},
        // Kind 3 fills nothing but the walk moves past the entry.
        {"unknown kind", up, 2, {{2, 5, 3}, {2, 6, 2}}, 0, 1, {{X, X}, {6, 2}}},
        {"rb_count past the list", up, 3, {{1, 2, 1}}, 1, 0, {{2, 1}, {X, X}, {X, X}}},
    };
    for (const ListCase& c : cases) {
        SCOPED_TRACE(c.name);
        g_log_snapshot_store.Reset();
        DeliverConfig(*c.direction, c.rb_count, c.list);
        std::string report = Publish();
        const std::string prefix =
            c.direction == &kRlcUplink ? std::string("rlc_ul_") : std::string("rlc_dl_");
        EXPECT_EQ(LinesStartingWith(report, prefix),
                  (Lines{prefix + "srb_num:n:" + std::to_string(c.srb),
                         prefix + "drb_num:n:" + std::to_string(c.drb)}));
        const RlcBearerTables tables =
            g_log_snapshot_store.RlcConfigCopy(c.direction->config_code).tables();
        for (size_t i = 0; i < c.tables.size(); ++i) {
            EXPECT_EQ(tables.cfg_idx[i], c.tables[i].first) << "position " << i;
            EXPECT_EQ(tables.kind[i], c.tables[i].second) << "position " << i;
        }
    }
}

TEST_F(RlcStatsTest, RbCountAboveFifteenStopsAtFifteenPositions) {
    for (const RlcDirection* d : {&kRlcDownlink, &kRlcUplink}) {
        g_log_snapshot_store.Reset();
        // Sixteen entries of type 2 fit in either list area: the sixteenth
        // is there to be read, but the tables end at fifteen.
        std::vector<ListEntry> list;
        for (uint8_t i = 0; i < 16; ++i) list.push_back({2, static_cast<uint8_t>(i + 1), 1});
        DeliverConfig(*d, 255, list);
        std::vector<StatsEntry> stats;
        for (uint8_t i = 1; i <= 16; ++i) stats.push_back({i});
        DeliverStats(*d, stats);
        std::string report = Publish();
        EXPECT_NE(report.find(std::string(d->srb_num) + ":n:15\n"), std::string::npos) << report;
        Json srb = Array(report, d->srb_status);
        ASSERT_TRUE(srb.is_array()) << report;
        EXPECT_EQ(CfgIndexes(srb),
                  (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
    }
}

TEST_F(RlcStatsTest, EntriesMatchedToBearersInListOrder) {
    DeliverConfig(kRlcUplink, 3, {{1, 1, 1}, {2, 3, 2}, {1, 4, 2}});
    // Entries in the order 4, 1, 3: the DRB array follows the list (3 before 4).
    DeliverStats(kRlcUplink, {{4, 2, 40}, {1, 1, 10}, {3, 0, 30}});
    std::string report = Publish();
    EXPECT_EQ(Array(report, "rlc_ul_srb_status"),
              Json::parse(R"([{"rb_cfg_idx1":1,"mode1":"AM","num_rst1":10,"num_data_pdu1":0,
                  "num_sdu1":0,"num_ctrl_pdu_tx1":0,"num_retx_pdu1":0,"num_ctrl_pdu_rx1":0,
                  "num_comp_nack1":0,"num_segm_nack1":0,"num_invalid_ctrl_pdu_rx1":0,
                  "num_poll1":0,"num_t_poll_retx_expiry1":0}])"));
    Json drb = Array(report, "rlc_ul_drb_status");
    ASSERT_EQ(drb.size(), 2u) << report;
    EXPECT_EQ(CfgIndexes(drb), (std::vector<int>{3, 4}));
    // Mode 0 writes no mode attribute; 2 is UM.
    EXPECT_FALSE(drb[0].contains("mode1"));
    EXPECT_EQ(drb[0]["num_rst1"], 30);
    EXPECT_EQ(drb[1]["mode2"], "UM");
    EXPECT_EQ(drb[1]["num_rst2"], 40);
    // The object's attributes in the uplink table's order.
    std::vector<std::string> keys;
    for (auto& item : drb[1].items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (Lines{"rb_cfg_idx2", "mode2", "num_rst2", "num_data_pdu2", "num_sdu2",
                           "num_ctrl_pdu_tx2", "num_retx_pdu2", "num_ctrl_pdu_rx2",
                           "num_comp_nack2", "num_segm_nack2", "num_invalid_ctrl_pdu_rx2",
                           "num_poll2", "num_t_poll_retx_expiry2"}));
    // The arrays come after the direction's counts.
    EXPECT_LT(report.find("rlc_ul_drb_num"), report.find("rlc_ul_srb_status"));
}

TEST_F(RlcStatsTest, DownlinkCountersAtTheirOffsets) {
    DeliverConfig(kRlcDownlink, 1, {{2, 9, 2}});
    LogPacket stats(kRlcDownlink.stats_code, 29 + 182);
    stats.Set8(20, 1).Set8(29, 9).Set8(30, 2);
    const size_t offsets[] = {2, 6, 14, 22, 30, 38, 46, 54, 62, 70, 74, 78, 82, 86};
    for (size_t i = 0; i < std::size(offsets); ++i) stats.Set32(29 + offsets[i], 100 + i);
    stats.Set32(29 + 86, 0xFFFFFFFF);  // the last counter: all ones is -1
    stats.Deliver();
    Json drb = Array(Publish(), "rlc_dl_drb_status");
    ASSERT_EQ(drb.size(), 1u);
    EXPECT_EQ(drb[0], Json::parse(R"({"rb_cfg_idx1":9,"mode1":"UM","num_rst1":100,
        "num_data_pdu1":101,"num_status_rxed1":102,"num_invalid_pdu1":103,"num_retx_pdu1":104,
        "num_dup_pdu1":105,"num_dropped_pdu1":106,"num_dropped_pdu_fc1":107,"num_sdu1":108,
        "num_nonseq_sdu1":109,"num_ctrl_pdu1":110,"num_comp_nack1":111,"num_segm_nack1":112,
        "num_t_reord_exp1":-1})"));
}

TEST_F(RlcStatsTest, TwentyMatchingEntriesGiveFifteenObjects) {
    DeliverConfig(kRlcUplink, 1, {{2, 6, 2}});
    DeliverStats(kRlcUplink, std::vector<StatsEntry>(20, StatsEntry{6}));
    std::string report = Publish();
    Json drb = Array(report, "rlc_ul_drb_status");
    ASSERT_TRUE(drb.is_array()) << report;
    EXPECT_EQ(drb.size(), 15u);
    EXPECT_TRUE(drb[14].contains("rb_cfg_idx15"));
    // Names are cut to the 24 characters of the name buffer: the longest
    // counter keeps only the first digit of a two-digit number.
    EXPECT_TRUE(drb[0].contains("num_invalid_ctrl_pdu_rx1"));
    EXPECT_TRUE(drb[9].contains("num_invalid_ctrl_pdu_rx1"));
    EXPECT_FALSE(drb[9].contains("num_invalid_ctrl_pdu_rx10"));
    EXPECT_EQ(Array(report, "rlc_ul_srb_status"), Json::array());
}

// Statistics without a configuration give empty arrays; statistics with a
// count of 0 give none (nor does a configuration alone: the walk's cases).
TEST_F(RlcStatsTest, StatisticsWithoutConfigurationOrEntries) {
    DeliverStats(kRlcDownlink, {{0}, {1}});
    DeliverConfig(kRlcUplink, 1, {{1, 1, 1}});
    DeliverStats(kRlcUplink, {});
    std::string report = Publish();
    EXPECT_EQ(LinesStartingWith(report, "rlc_dl_"),
              (Lines{"rlc_dl_srb_num::No data available!", "rlc_dl_drb_num::No data available!",
                     "rlc_dl_srb_status:json:[]", "rlc_dl_drb_status:json:[]"}));
    EXPECT_EQ(LinesStartingWith(report, "rlc_ul_"),
              (Lines{"rlc_ul_srb_num:n:1", "rlc_ul_drb_num:n:0"}));
}

TEST_F(RlcStatsTest, CountPastTheEntriesInThePacketReadsOnlyTheArray) {
    DeliverConfig(kRlcUplink, 1, {{1, 2, 1}});
    // The header says 200 entries; the packet carries one.
    LogPacket stats(kRlcUplink.stats_code, 25 + 126);
    stats.Set8(20, 200).Set8(25, 2).Set8(26, 1);
    stats.Deliver();
    Json srb = Array(Publish(), "rlc_ul_srb_status");
    ASSERT_EQ(srb.size(), 1u);
    EXPECT_EQ(srb[0]["rb_cfg_idx1"], 2);
}

TEST_F(RlcStatsTest, ANewConfigurationKeepsItsResetTables) {
    DeliverConfig(kRlcUplink, 1, {{1, 1, 1}});
    const RlcConfigView before = g_log_snapshot_store.RlcConfigCopy(kRlcUplink.config_code);
    DeliverConfig(kRlcUplink, 1, {{1, 2, 2}});
    RlcBearerTables stale;
    stale.cfg_idx[0] = 1;
    stale.kind[0] = 1;
    // Tables worked out from the older packet do not land on the newer one.
    EXPECT_FALSE(g_log_snapshot_store.StoreRlcBearerTables(kRlcUplink.config_code,
                                                           before.generation(), stale));
    EXPECT_EQ(g_log_snapshot_store.RlcConfigCopy(kRlcUplink.config_code).tables().kind[0], 0xFF);
}

}  // namespace
