// The LTE world: its log packets stored in the daemon's own snapshot store
// and read back through the layouts the reports read, its type-4 GERAN
// answer read at the offsets of the daemon's 1331-byte buffer, the world's
// movement, how scenarios override it, and the DIAG side streaming it by
// the mask, in-process and as the modemsim process.
#include "tools/modemsim/lte_world.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <set>

#include "diaglog/log_snapshot_store.h"
#include "platform/dmux/diag_packet.h"
#include "platform/dmux/packet_versions/packet_translator.h"
#include "testsupport/child_process.h"
#include "testsupport/diag_capture_builder.h"
#include "tools/modemsim/diag_side.h"
#include "tools/modemsim/diag_test_client.h"
#include "tools/modemsim/lte_log_packets.h"
#include "tools/modemsim/rat_meas_test_request.h"
#include "tools/modemsim/scenario.h"
#include "tools/modemsim/vendor_service.h"

namespace modemsim {
namespace {

namespace L = log_layout;
using Bytes = std::vector<uint8_t>;

const std::set<uint16_t> kLteCodes = {0xB0C2, 0xB179, 0xB17F, 0xB19B, 0xB185,
                                      0xB0EE, 0xB081, 0xB091, 0xB087, 0xB097};

// Every packet of the world at one moment, stored as the DM callback
// stores it: the whole log record.
void StoreAll(const LteState& state) {
    g_log_snapshot_store.Reset();
    for (const LogPayload& packet : LteLogPayloads(state)) {
        Bytes record = dmux::BuildLogRecord(packet.code, 1, packet.payload);
        EXPECT_TRUE(g_log_snapshot_store.Store(packet.code, record.data(), record.size()))
            << std::hex << packet.code;
    }
}

// The RSSI the report publishes from the 0xB17F word.
int RssiFromWord(uint32_t word) {
    uint32_t v = (word >> 10) & 0x3FFF;
    return v <= 1600 ? int(v >> 4) - 110 : 9999;
}

// A bearer of a configuration list as the RLC report walks it: the list
// entries' types give their lengths, and position i holds the i-th entry.
struct ListedBearer {
    uint8_t type, cfg_idx, kind;
    bool operator==(const ListedBearer&) const = default;
};
std::vector<ListedBearer> WalkConfig(uint16_t code, const L::RlcConfig::ListShape& shape) {
    std::lock_guard<std::mutex> hold(g_log_snapshot_store.mutex());
    const RlcConfigSnapshot* config = g_log_snapshot_store.RlcConfig(code);
    std::vector<ListedBearer> out;
    std::span<const uint8_t> list = config->rb_list();
    size_t p = 0;
    for (size_t i = 0; i < config->rb_count() && i < L::RlcConfig::kMaxListEntries; ++i) {
        rt::FieldReader entry(list.subspan(std::min(p, list.size())));
        uint8_t type = entry.Get(L::RlcConfig::kEntryType);
        if (type != 1 && type != 2) break;  // the report would stall here
        out.push_back(
            {type, entry.Get(L::RlcConfig::kEntryCfgIdx), entry.Get(L::RlcConfig::kEntryKind)});
        p += type == 1 ? shape.type1_length : shape.type2_length;
    }
    return out;
}

// The statistics entries of `code` as stored, one byte span each.
std::vector<Bytes> StatsEntries(uint16_t code) {
    std::lock_guard<std::mutex> hold(g_log_snapshot_store.mutex());
    const RlcStatsSnapshot* stats = g_log_snapshot_store.RlcStats(code);
    std::vector<Bytes> out;
    if (!stats->rlc_stats_entries) return out;
    EXPECT_EQ(stats->entries_size, stats->count() * stats->entry_size);
    for (size_t s = 0; s < stats->count(); ++s) {
        const uint8_t* at = stats->rlc_stats_entries.get() + s * stats->entry_size;
        out.emplace_back(at, at + stats->entry_size);
    }
    return out;
}
template <class T>
T Entry(const Bytes& entry, rt::Field<T> field) {
    std::optional<T> value = rt::FieldReader(entry).Read(field);
    EXPECT_TRUE(value.has_value()) << "entry field at " << field.offset;
    return value.value_or(T{0});
}

// The daemon's response buffer for type 4: 10 bytes of TLV headers, then
// the measurement value.
Bytes GeranBuffer(const VendorService& service, double seconds) {
    Bytes buffer(10, 0);
    Bytes value = service.RatMeasValueAt(4, seconds);
    buffer.insert(buffer.end(), value.begin(), value.end());
    EXPECT_EQ(buffer.size(), kRatMeasResponseSize);
    return buffer;
}

// The present GERAN cells of a type-4 buffer, group by group, as
// (BSIC, RSSI in 0.1 dBm); empty unless the buffer passes the report's
// checks.
std::vector<std::pair<int, int>> GeranCells(const Bytes& buffer) {
    std::vector<std::pair<int, int>> out;
    rt::FieldReader r(buffer);
    if (r.Get(rt::Field<uint8_t>{10}) == 0 || r.Get(rt::Field<uint8_t>{11}) != 4 ||
        r.Get(rt::Field<uint8_t>{12}) == 0)
        return out;
    size_t groups = std::min<size_t>(r.Get(rt::Field<uint8_t>{276}), 13);
    for (size_t g = 0; g < groups; ++g) {
        size_t group = 277 + 77 * g;
        size_t cells = std::min<size_t>(r.Get(rt::Field<uint8_t>{group}), 8);
        for (size_t e = 0; e < cells; ++e) {
            size_t cell = group + 4 + 9 * e;
            if (r.Get(rt::Field<uint8_t>{cell}) == 0) continue;
            out.emplace_back(r.Get(rt::Field<uint8_t>{cell + 1}),
                             r.Get(rt::Field<int16_t>{cell + 2}));
        }
    }
    return out;
}
std::vector<std::pair<int, int>> WorldGeranCells(const LteState& state) {
    std::vector<std::pair<int, int>> out;
    for (const GeranGroup& group : state.geran)
        for (const GeranCell& cell : group.cells)
            if (cell.present) out.emplace_back(cell.bsic, cell.rssi);
    return out;
}

TEST(LteWorld, EveryCodeIsLoggedAtLeastAsLongAsItsSnapshot) {
    LteWorld world(nlohmann::json::object());
    std::set<uint16_t> codes;
    for (const LogPayload& packet : LteLogPayloads(world.At(3.0))) {
        codes.insert(packet.code);
        for (const FixedSnapshotSize& fixed : kFixedSnapshotSizes)
            if (fixed.code == packet.code) {
                EXPECT_GE(12 + packet.payload.size(), fixed.size) << std::hex << packet.code;
            }
    }
    EXPECT_EQ(codes, kLteCodes);
    StoreAll(world.At(3.0));
    for (uint16_t code : kLteCodes)
        EXPECT_TRUE(g_log_snapshot_store.View(code).has_packet()) << std::hex << code;
}

// The DIAG library drops a version it does not know: every packet the
// world logs must be in the version and subpacket the daemon reads, or the
// report never sees it.
TEST(LteWorld, EveryPacketIsDeliveredAsItIsByTheDiagLibrary) {
    LteWorld world(nlohmann::json::object());
    dmux::PacketTranslator translator;
    for (double t : {0.0, 16.0}) {
        for (const LogPayload& packet : LteLogPayloads(world.At(t))) {
            std::vector<uint8_t> record = rt::test::DiagLogRecord(packet.code, packet.payload);
            dmux::Translation out = translator.Translate(packet.code, record);
            EXPECT_EQ(out.verdict, dmux::VersionVerdict::kAsIs) << std::hex << packet.code;
            EXPECT_EQ(out.record.size(), record.size()) << std::hex << packet.code;
        }
    }
}

// At several moments, across handovers: every code read back through the
// store carries the world's values, and the codes that name the serving
// cell name the same one.
TEST(LteWorld, PacketsReadBackThroughTheStoreAgree) {
    LteWorld world(nlohmann::json::object());
    for (double t : {0.0, 7.5, 15.2, 29.9, 31.0, 44.0, 52.5}) {
        SCOPED_TRACE("t=" + std::to_string(t));
        LteState state = world.At(t);
        StoreAll(state);

        SnapshotView cell = g_log_snapshot_store.View(L::LteServingCell::kCode);
        EXPECT_EQ(cell.Get(L::LteServingCell::kPci), state.pci);
        EXPECT_EQ(cell.Get(L::LteServingCell::kDlEarfcn), state.dl_earfcn);
        EXPECT_EQ(cell.Get(L::LteServingCell::kUlEarfcn), state.ul_earfcn);
        EXPECT_EQ(cell.Get(L::LteServingCell::kDlBandwidthRb), state.dl_bandwidth_rb);
        EXPECT_EQ(cell.Get(L::LteServingCell::kUlBandwidthRb), state.ul_bandwidth_rb);
        EXPECT_EQ(cell.Get(L::LteServingCell::kCellId), state.cell_id);
        EXPECT_EQ(cell.Get(L::LteServingCell::kTac), state.tac);
        EXPECT_EQ(cell.Get(L::LteServingCell::kBand), state.band);
        EXPECT_EQ(cell.Get(L::LteServingCell::kMcc), 311);
        EXPECT_EQ(cell.Get(L::LteServingCell::kMnc), 480);

        // The measurements name the serving cell of 0xB0C2.
        SnapshotView meas = g_log_snapshot_store.View(L::LteServingMeasurements::kCode);
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kEarfcn),
                  cell.Get(L::LteServingCell::kDlEarfcn));
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kPci), cell.Get(L::LteServingCell::kPci));
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kRawRsrp), state.rsrp);
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kRawRsrq), state.rsrq);

        SnapshotView rssi = g_log_snapshot_store.View(L::LteServingRssi::kCode);
        EXPECT_EQ(rssi.Get(L::kVersion), 3);
        EXPECT_EQ(RssiFromWord(rssi.Get(L::LteServingRssi::kRssiWord)), state.rssi_dbm);

        SnapshotView wcdma = g_log_snapshot_store.View(L::LteWcdmaNeighbours::kCode);
        EXPECT_EQ(wcdma.Get(L::LteWcdmaNeighbours::kUarfcn), 10700);
        ASSERT_EQ(wcdma.Get(L::LteWcdmaNeighbours::kEntryCount), 3);
        for (size_t i = 1; i <= 3; ++i)
            EXPECT_EQ(wcdma.Get(L::LteWcdmaNeighbours::Rscp(i)), state.wcdma_rscp[i - 1]) << i;

        SnapshotView cdma = g_log_snapshot_store.View(L::LteCdmaNeighbours::kCode);
        ASSERT_EQ(state.cdma.size(), 3u);
        for (size_t k = 0; k < 3; ++k) {
            EXPECT_EQ(cdma.Get(L::LteCdmaNeighbours::PilotPn(k)), state.cdma[k].pilot_pn);
            EXPECT_EQ(cdma.Get(L::LteCdmaNeighbours::Rssi(k)), state.cdma[k].rssi);
            EXPECT_EQ(cdma.Get(L::LteCdmaNeighbours::Ecio(k)), state.cdma[k].ecio);
        }

        // MCC 311, MNC 480 in BCD octets 13 01 84; a GUTI whose M-TMSI's
        // three high bytes the report reads big-endian.
        SnapshotView id = g_log_snapshot_store.View(L::LteUeIdentity::kCode);
        uint32_t plmn = 0;
        for (size_t i = 0; i < 3; ++i) plmn = plmn << 8 | id.Get(L::LteUeIdentity::PlmnByte(i));
        EXPECT_EQ(plmn, 0x130184u);
        EXPECT_EQ(id.Get(L::LteUeIdentity::kValid), 1);
        EXPECT_EQ(id.Get(L::LteUeIdentity::kIdentityType), 6);
        EXPECT_EQ(id.Get(L::LteUeIdentity::kMmegi), 32769);
        EXPECT_EQ(id.Get(L::LteUeIdentity::kMmec), 21);
        uint32_t m = uint32_t(id.Get(L::LteUeIdentity::MTmsiByte(0))) << 24 |
                     uint32_t(id.Get(L::LteUeIdentity::MTmsiByte(1))) << 16 |
                     uint32_t(id.Get(L::LteUeIdentity::MTmsiByte(2))) << 8;
        EXPECT_EQ(m, 3254781953u & 0xFFFFFF00u);
    }
}

TEST(LteWorld, HandoverMovesTheServingCellAlongTheList) {
    LteWorld world(nlohmann::json::object());
    double period = world.handover_period_ms() / 1000.0;
    struct Case {
        double at;
        uint16_t pci, dl_earfcn, ul_earfcn;
        uint8_t dl_rb;
        uint32_t band;
        uint16_t tac;
    };
    const Case cases[] = {
        {0.0, 87, 5230, 23230, 50, 13, 12801},
        {period - 0.01, 87, 5230, 23230, 50, 13, 12801},
        {period + 0.01, 212, 5230, 23230, 50, 13, 12801},
        {2 * period + 0.01, 405, 2175, 20175, 100, 4, 12802},
        {3 * period + 0.01, 87, 5230, 23230, 50, 13, 12801},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("t=" + std::to_string(c.at));
        StoreAll(world.At(c.at));
        SnapshotView cell = g_log_snapshot_store.View(L::LteServingCell::kCode);
        SnapshotView meas = g_log_snapshot_store.View(L::LteServingMeasurements::kCode);
        EXPECT_EQ(cell.Get(L::LteServingCell::kPci), c.pci);
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kPci), c.pci);
        EXPECT_EQ(cell.Get(L::LteServingCell::kDlEarfcn), c.dl_earfcn);
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kEarfcn), c.dl_earfcn);
        EXPECT_EQ(cell.Get(L::LteServingCell::kUlEarfcn), c.ul_earfcn);
        EXPECT_EQ(cell.Get(L::LteServingCell::kDlBandwidthRb), c.dl_rb);
        EXPECT_EQ(cell.Get(L::LteServingCell::kBand), c.band);
        EXPECT_EQ(cell.Get(L::LteServingCell::kTac), c.tac);
    }
}

// The bearer list read back as the RLC report walks it, and every
// statistics entry matching a listed bearer of its configuration index,
// with the mode its list entry's type says; also when released records
// push the list further into the packet.
TEST(LteWorld, RlcStatisticsMatchTheConfigurationThroughTheStore) {
    const std::vector<ListedBearer> expected = {{1, 1, 1}, {1, 2, 1}, {1, 3, 2}, {2, 4, 2}};
    for (int released : {0, 2, 5}) {
        SCOPED_TRACE("released=" + std::to_string(released));
        LteWorld world(nlohmann::json{{"rlc", {{"released", released}}}});
        StoreAll(world.At(12.0));
        struct Direction {
            uint16_t config, stats;
            const L::RlcConfig::ListShape& shape;
            size_t entry_size;
        };
        const Direction directions[] = {
            {L::RlcConfig::kDlCode, L::RlcDlStats::kCode, L::RlcConfig::kDlList,
             L::RlcDlStats::kEntrySize},
            {L::RlcConfig::kUlCode, L::RlcUlStats::kCode, L::RlcConfig::kUlList,
             L::RlcUlStats::kEntrySize},
        };
        for (const Direction& d : directions) {
            SCOPED_TRACE("config=" + std::to_string(d.config));
            std::vector<ListedBearer> listed = WalkConfig(d.config, d.shape);
            EXPECT_EQ(listed, expected);
            std::vector<Bytes> entries = StatsEntries(d.stats);
            ASSERT_EQ(entries.size(), listed.size());
            for (size_t s = 0; s < entries.size(); ++s) {
                ASSERT_EQ(entries[s].size(), d.entry_size);
                uint8_t cfg = Entry(entries[s], L::RlcUlStats::kCfgIdx);
                uint8_t mode = Entry(entries[s], L::RlcUlStats::kMode);
                auto match = std::find_if(listed.begin(), listed.end(),
                                          [&](const ListedBearer& b) { return b.cfg_idx == cfg; });
                ASSERT_NE(match, listed.end()) << "entry " << s << " index " << int(cfg);
                EXPECT_EQ(mode, match->type) << "AM lists as type 1, UM as type 2";
            }
        }
    }
}

// Counters read back from the stored entries: the data PDUs are the
// bearer's rate times the time, resets count the handovers, nothing ever
// goes down, and a UM bearer acknowledges nothing.
TEST(LteWorld, RlcCountersGrowWithTime) {
    LteWorld world(nlohmann::json::object());
    double period = world.handover_period_ms() / 1000.0;
    std::map<uint8_t, std::vector<uint32_t>> last_dl, last_ul;
    for (double t : {0.0, 1.0, 2.5, 10.0, period + 1, 2 * period + 1, 100.0, 3600.0}) {
        SCOPED_TRACE("t=" + std::to_string(t));
        StoreAll(world.At(t));
        unsigned handovers = unsigned(t / period);
        for (const Bytes& e : StatsEntries(L::RlcDlStats::kCode)) {
            using E = L::RlcDlStats;
            uint8_t cfg = Entry(e, E::kCfgIdx);
            std::vector<uint32_t> now = {Entry(e, E::kNumRst),        Entry(e, E::kNumDataPdu),
                                         Entry(e, E::kNumStatusRxed), Entry(e, E::kNumRetxPdu),
                                         Entry(e, E::kNumSdu),        Entry(e, E::kNumCtrlPdu),
                                         Entry(e, E::kNumCompNack),   Entry(e, E::kNumTReordExp)};
            EXPECT_EQ(now[0], handovers);
            if (cfg == 3) {
                EXPECT_EQ(now[1], uint32_t(900 * t));
            }
            if (cfg == 4) {
                EXPECT_EQ(now[1], uint32_t(50 * t));
                EXPECT_EQ(now[2] + now[3] + now[5] + now[6], 0u) << "UM";
            }
            EXPECT_LE(now[4], now[1]) << "SDUs from PDUs";
            for (size_t k = 0; k < now.size() && !last_dl[cfg].empty(); ++k)
                EXPECT_GE(now[k], last_dl[cfg][k]) << "bearer " << int(cfg) << " counter " << k;
            last_dl[cfg] = now;
        }
        for (const Bytes& e : StatsEntries(L::RlcUlStats::kCode)) {
            using E = L::RlcUlStats;
            uint8_t cfg = Entry(e, E::kCfgIdx);
            std::vector<uint32_t> now = {Entry(e, E::kNumRst),     Entry(e, E::kNumDataPdu),
                                         Entry(e, E::kNumSdu),     Entry(e, E::kNumRetxPdu),
                                         Entry(e, E::kNumPoll),    Entry(e, E::kNumCtrlPduTx),
                                         Entry(e, E::kNumSegmNack)};
            EXPECT_EQ(now[0], handovers);
            if (cfg == 3) {
                EXPECT_EQ(now[1], uint32_t(150 * t));
            }
            if (cfg == 4) {
                EXPECT_EQ(now[3] + now[4] + now[5], 0u) << "UM";
            }
            for (size_t k = 0; k < now.size() && !last_ul[cfg].empty(); ++k)
                EXPECT_GE(now[k], last_ul[cfg][k]) << "bearer " << int(cfg) << " counter " << k;
            last_ul[cfg] = now;
        }
    }
    // An hour in, the default bearer has carried a lot.
    EXPECT_GT(last_dl[3][1], 3000000u);
}

TEST(LteWorld, ValuesMoveButStayWithinTheirBounds) {
    LteWorld world(nlohmann::json::object());
    std::map<uint16_t, int> rsrp_base, rsrq_base;
    for (const auto& cell : world.settings()["cells"]) {
        rsrp_base[cell["pci"].get<uint16_t>()] = cell["rsrp"].get<int>();
        rsrq_base[cell["pci"].get<uint16_t>()] = cell["rsrq"].get<int>();
    }
    std::set<int> rsrps, rsrqs, rssis, rscps, geran, cdma;
    for (int ms = 0; ms <= 40000; ms += 250) {
        LteState state = world.At(ms / 1000.0);
        EXPECT_LE(std::abs(state.rsrp - rsrp_base[state.pci]), 48) << ms;
        EXPECT_LE(std::abs(state.rsrq - rsrq_base[state.pci]), 24) << ms;
        EXPECT_LE(std::abs(state.rssi_dbm - -65), 4) << ms;
        EXPECT_LE(std::abs(state.wcdma_rscp[0] - -95), 4) << ms;
        EXPECT_LE(std::abs(state.geran[0].cells[0].rssi - -955), 40) << ms;
        EXPECT_LE(std::abs(state.cdma[1].ecio - -13), 3) << ms;
        if (state.pci == 87) rsrps.insert(state.rsrp), rsrqs.insert(state.rsrq);
        rssis.insert(state.rssi_dbm);
        rscps.insert(state.wcdma_rscp[0]);
        geran.insert(state.geran[0].cells[0].rssi);
        cdma.insert(state.cdma[1].ecio);
        // The same moment is the same world.
        EXPECT_EQ(world.At(ms / 1000.0).rsrp, state.rsrp);
    }
    for (const auto* seen : {&rsrps, &rsrqs, &rssis, &rscps, &geran, &cdma})
        EXPECT_GE(seen->size(), 5u);
}

TEST(LteWorld, ScenarioSectionOverridesTheDefault) {
    LteWorld world(nlohmann::json::parse(R"({
        "mcc": 234, "mnc": 15, "dl_earfcn": 1300, "ul_earfcn": 19300, "dl_bandwidth_rb": 75,
        "ul_bandwidth_rb": 25, "band": 3, "tac": 77,
        "cells": [{"pci": 501, "cell_id": 4000000001, "rsrp": 1000, "rsrq": 160}],
        "rssi": -10,
        "ue_identity": {"type": "imsi", "mmegi": 7, "mmec": 8, "m_tmsi": 305419896},
        "wcdma": {"uarfcn": 412, "rscp": [-80, -81, -82, -83, -84]},
        "rlc": {"bearers": [{"cfg_idx": 9, "kind": "drb", "mode": "UM", "dl_rate": 10}]},
        "drift": {"rsrp": 0, "rsrq": 0, "rssi": 0, "rscp": 0, "cdma": 0, "geran_rssi": 0}})"));
    for (double t : {0.0, 33.3, 400.0}) {
        SCOPED_TRACE("t=" + std::to_string(t));
        StoreAll(world.At(t));
        SnapshotView cell = g_log_snapshot_store.View(L::LteServingCell::kCode);
        EXPECT_EQ(cell.Get(L::LteServingCell::kPci), 501);  // one cell: handovers stay on it
        EXPECT_EQ(cell.Get(L::LteServingCell::kCellId), 4000000001u);
        EXPECT_EQ(cell.Get(L::LteServingCell::kDlBandwidthRb), 75);
        EXPECT_EQ(cell.Get(L::LteServingCell::kUlBandwidthRb), 25);
        EXPECT_EQ(cell.Get(L::LteServingCell::kBand), 3u);
        EXPECT_EQ(cell.Get(L::LteServingCell::kTac), 77);
        SnapshotView meas = g_log_snapshot_store.View(L::LteServingMeasurements::kCode);
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kRawRsrp), 1000);  // -117.5 dBm
        EXPECT_EQ(meas.Get(L::LteServingMeasurements::kRawRsrq), 160);
        EXPECT_EQ(RssiFromWord(g_log_snapshot_store.View(L::LteServingRssi::kCode)
                                   .Get(L::LteServingRssi::kRssiWord)),
                  -10);
        SnapshotView wcdma = g_log_snapshot_store.View(L::LteWcdmaNeighbours::kCode);
        EXPECT_EQ(wcdma.Get(L::LteWcdmaNeighbours::kUarfcn), 412);
        EXPECT_EQ(wcdma.Get(L::LteWcdmaNeighbours::kEntryCount), 5);
        EXPECT_EQ(wcdma.Get(L::LteWcdmaNeighbours::Rscp(5)), -84);
        // MCC 234, two-digit MNC 15: 32 F4 51; an IMSI identity.
        SnapshotView id = g_log_snapshot_store.View(L::LteUeIdentity::kCode);
        EXPECT_EQ(id.Get(L::LteUeIdentity::PlmnByte(0)), 0x32);
        EXPECT_EQ(id.Get(L::LteUeIdentity::PlmnByte(1)), 0xF4);
        EXPECT_EQ(id.Get(L::LteUeIdentity::PlmnByte(2)), 0x51);
        EXPECT_EQ(id.Get(L::LteUeIdentity::kIdentityType), 1);
        EXPECT_EQ(id.Get(L::LteUeIdentity::MTmsiByte(0)), 0x12);
        EXPECT_EQ(id.Get(L::LteUeIdentity::MTmsiByte(2)), 0x56);
        EXPECT_EQ(WalkConfig(L::RlcConfig::kDlCode, L::RlcConfig::kDlList),
                  (std::vector<ListedBearer>{{2, 9, 2}}));
        std::vector<Bytes> dl = StatsEntries(L::RlcDlStats::kCode);
        ASSERT_EQ(dl.size(), 1u);
        EXPECT_EQ(Entry(dl[0], L::RlcDlStats::kNumDataPdu), uint32_t(10 * t));
        EXPECT_EQ(StatsEntries(L::RlcUlStats::kCode).size(), 1u);
    }
}

// A scenario is typed by hand: a value of the wrong type falls back to the
// default, a number out of range is clamped, and nothing throws.
TEST(LteWorld, WrongTypedScenarioValuesFallBack) {
    const char* sections[] = {
        R"({"enabled": 1, "period_ms": "fast", "cells": [7, {"pci": "x"}], "rssi": 1e300})",
        R"({"ue_identity": {"type": [], "m_tmsi": -1e30}, "wcdma": {"rscp": ["a", null, 70000]}})",
        R"({"rlc": {"bearers": [3, {"kind": 2, "mode": null, "dl_rate": 1e20}], "released": 999}})",
        R"({"geran": [{"cells": "none"}, 5], "cdma": {"pilot_pn": 1}, "drift": []})",
        R"({"cells": [], "handover_period_ms": -5, "drift_period_ms": 0})",
    };
    for (const char* text : sections) {
        SCOPED_TRACE(text);
        nlohmann::json section = nlohmann::json::parse(text);
        LteState state;
        EXPECT_NO_THROW({
            LteWorld world(section);
            EXPECT_TRUE(world.enabled());
            state = world.At(123.4);
            StoreAll(state);
        });
        EXPECT_GE(state.rssi_dbm, -110);
        EXPECT_LE(state.rssi_dbm, -10);
    }
}

TEST(LteWorld, RssiWordCarriesTheReportedRange) {
    struct Case {
        int dbm, reported;
    };
    const Case cases[] = {{-110, -110}, {-65, -65}, {-10, -10}, {-5, -10}, {-130, -110}};
    for (const Case& c : cases) {
        uint32_t word = RssiWord(c.dbm);
        EXPECT_EQ(word & 0xFF0003FFu, 0u) << "only bits 10 to 23";
        EXPECT_EQ(RssiFromWord(word), c.reported) << c.dbm;
    }
}

// The type-4 answer measures the world's GERAN neighbours at the moment
// asked for; the qmi section's keys lie over it; without a world (or with
// it off) the static section answers as before.
TEST(LteWorld, GeranAnswerComesFromTheWorld) {
    auto world = std::make_shared<const LteWorld>(nlohmann::json::object());
    VendorService service(nlohmann::json::object(), nullptr, world);
    std::set<int> rssis;
    for (double t : {0.0, 3.0, 7.0, 12.0, 31.0}) {
        SCOPED_TRACE("t=" + std::to_string(t));
        Bytes buffer = GeranBuffer(service, t);
        EXPECT_EQ(GeranCells(buffer), WorldGeranCells(world->At(t)));
        ASSERT_EQ(GeranCells(buffer).size(), 3u);
        EXPECT_EQ(GeranCells(buffer)[0].first, 12);
        rssis.insert(GeranCells(buffer)[0].second);
    }
    EXPECT_GE(rssis.size(), 3u) << "the RSSIs drift";

    // A scenario change moves the answer.
    auto moved = std::make_shared<const LteWorld>(nlohmann::json::parse(R"({
        "geran": [{"cells": [{"bsic": 1, "rssi": -500}, {"bsic": 2, "rssi": -600, "present": 0},
                             {"bsic": 3, "rssi": -700}]}],
        "drift": {"geran_rssi": 0}})"));
    VendorService moved_service(nlohmann::json::object(), nullptr, moved);
    EXPECT_EQ(GeranCells(GeranBuffer(moved_service, 5.0)),
              (std::vector<std::pair<int, int>>{{1, -500}, {3, -700}}));

    // Keys of the section lie over the world's values.
    VendorService invalid(nlohmann::json::parse(R"({"lte_geran": {"valid": 0}})"), nullptr, world);
    Bytes buffer = GeranBuffer(invalid, 0.0);
    EXPECT_EQ(buffer[12], 0);
    EXPECT_EQ(buffer[276], 2) << "groups still from the world";

    // World off: the static section.
    auto off = std::make_shared<const LteWorld>(nlohmann::json{{"enabled", false}});
    VendorService plain(DefaultScenario()["qmi"], nullptr, off);
    EXPECT_EQ(GeranCells(GeranBuffer(plain, 9.0)),
              (std::vector<std::pair<int, int>>{{12, -955}, {40, -701}, {7, -1020}}));
    VendorService none(nlohmann::json::object(), nullptr, off);
    EXPECT_TRUE(GeranCells(GeranBuffer(none, 0.0)).empty());
}

// The DIAG side streams the LTE codes that the mask enables, and what
// arrives, stored as the daemon stores it, reads back consistently.
TEST(LteWorldDiag, CodesArriveByTheMaskAndStoreConsistently) {
    rt::test::TempDir dir;
    std::string path = dir.file("diag.sock");
    auto lte = std::make_shared<const LteWorld>(nlohmann::json{{"period_ms", 20}});
    auto wcdma = std::make_shared<const WcdmaWorld>(nlohmann::json{{"enabled", false}});
    DiagSide side("unix:" + path, "", nlohmann::json{{"rrc_states", nlohmann::json::array()}},
                  wcdma, lte);
    std::string error;
    ASSERT_TRUE(side.Start(&error)) << error;
    DiagClient client(path);
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(client.Collect(150).empty());  // nothing enabled yet

    ASSERT_TRUE(client.Enable(11, {0xB0C2, 0xB179}));
    client.Collect(100);  // what was under way before the mask took hold
    EXPECT_EQ(Codes(client.Collect(300)), (std::set<uint16_t>{0xB0C2, 0xB179}));

    ASSERT_TRUE(client.Enable(11, std::vector<uint16_t>(kLteCodes.begin(), kLteCodes.end())));
    client.Collect(100);
    std::map<uint16_t, Bytes> got = client.Collect(300, true);
    EXPECT_EQ(Codes(got), kLteCodes);
    g_log_snapshot_store.Reset();
    for (const auto& [code, record] : got)
        EXPECT_TRUE(g_log_snapshot_store.Store(code, record.data(), record.size()));
    SnapshotView cell = g_log_snapshot_store.View(L::LteServingCell::kCode);
    SnapshotView meas = g_log_snapshot_store.View(L::LteServingMeasurements::kCode);
    EXPECT_EQ(cell.Get(L::LteServingCell::kPci), 87);
    EXPECT_EQ(meas.Get(L::LteServingMeasurements::kPci), 87);
    EXPECT_EQ(WalkConfig(L::RlcConfig::kUlCode, L::RlcConfig::kUlList).size(), 4u);
    EXPECT_EQ(StatsEntries(L::RlcUlStats::kCode).size(), 4u);

    ASSERT_TRUE(client.Enable(11, {}));
    client.Collect(100);
    EXPECT_TRUE(client.Collect(200).empty());
    side.Stop();
}

// The modemsim process: the serving cell it logs and the GERAN cells its
// type-4 answer names come from the one LTE world of its scenario.
TEST(LteWorldProcess, QmiAndDiagSidesShareTheWorld) {
    rt::test::TempDir dir;
    std::string scenario = dir.file("scenario.json");
    std::ofstream(scenario) << R"({"diag": {"rrc_states": []}, "wcdma": {"enabled": false},
        "lte": {"period_ms": 50, "cells": [{"pci": 333, "cell_id": 9, "rsrp": 1200}],
                "geran": [{"cells": [{"bsic": 21, "rssi": -810}]},
                          {"cells": [{"bsic": 22, "rssi": -820}, {"bsic": 23, "rssi": -830}]}],
                "drift": {"geran_rssi": 0}}})";
    std::string qmi_endpoint = "unix:" + dir.file("qmi.sock");
    rt::test::ChildProcess modem({rt::test::BinPath("modemsim"), "--qmi", qmi_endpoint, "--diag",
                                  "unix:" + dir.file("diag.sock"), "--scenario", scenario});
    ASSERT_TRUE(modem.WaitForStderr("modemsim: ready")) << modem.Stderr();

    DiagClient diag(dir.file("diag.sock"));
    ASSERT_TRUE(diag.connected());
    ASSERT_TRUE(diag.Enable(11, {0xB0C2, 0xB081}));
    std::map<uint16_t, Bytes> got = diag.Collect(400, true);
    ASSERT_EQ(Codes(got), (std::set<uint16_t>{0xB0C2, 0xB081})) << modem.Stderr();
    g_log_snapshot_store.Reset();
    g_log_snapshot_store.Store(0xB0C2, got[0xB0C2].data(), got[0xB0C2].size());
    EXPECT_EQ(g_log_snapshot_store.View(0xB0C2).Get(L::LteServingCell::kPci), 333);

    Bytes qmi = RequestRatMeasurement(qmi_endpoint, 4);
    ASSERT_EQ(qmi.size(), kRatMeasResponseSize);
    EXPECT_EQ(GeranCells(qmi),
              (std::vector<std::pair<int, int>>{{21, -810}, {22, -820}, {23, -830}}));

    modem.Signal(SIGTERM);
    EXPECT_EQ(modem.Wait(), 0);
}

}  // namespace
}  // namespace modemsim
