// The LTE world: its log packets decoded at the offsets the captures'
// README gives and the captures show, never through the daemon's reader
// (the same decoder reads real captures to their published values and
// modemsim's packets to the world's); the world's movement, its scenario
// overrides and its type-4 GERAN answer; and end to end, the daemon showing
// the world through the DIAG library's translation of the newer versions.
#include "tools/modemsim/lte_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <span>
#include <sstream>
#include <thread>

#include "platform/dmux/diag_stream.h"
#include "platform/dmux/dm_stats_object.h"
#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/diag_capture_builder.h"
#include "testsupport/eventually.h"
#include "testsupport/modemsim_process.h"
#include "tools/modemsim/lte_log_packets.h"
#include "tools/modemsim/scenario.h"
#include "tools/modemsim/vendor_service.h"

namespace modemsim {
namespace {

using Bytes = std::vector<uint8_t>;
using Values = std::map<std::string, int64_t>;

const std::set<uint16_t> kLteCodes = {0xB0C2, 0xB179, 0xB17F, 0xB19B, 0xB185,
                                      0xB0EE, 0xB081, 0xB091, 0xB087, 0xB097};

// A published field: its name, its offset from the start of the log record
// (or of an entry), its width in bytes (negative: signed), its byte order.
struct Fact {
    const char* name;
    size_t offset;
    int width;
    bool big_endian = false;
};
// The captures' README, "Expected values".
const Fact kServingCellV3[] = {{"version", 12, 1},   {"pci", 13, 2},        {"dl_earfcn", 15, 4},
                               {"ul_earfcn", 19, 4}, {"dl_rb", 23, 1},      {"ul_rb", 24, 1},
                               {"cell_id", 25, 4},   {"tac", 29, 2},        {"band", 31, 4},
                               {"mcc", 35, 2},       {"mnc_digits", 37, 1}, {"mnc", 38, 2}};
const Fact kMeasurementsV4[] = {{"version", 12, 1},    {"index", 16, 1},   {"earfcn", 20, 4},
                                {"pci", 24, 2},        {"rsrp", 28, -2},   {"rsrq", 32, -2},
                                {"neighbours", 36, 1}, {"detected", 37, 1}};
// As the captures hold them: ATT-iphone's 0xB17F, CMCC's and tmobile's
// 0xB0EE, the RLC packets' subpacket header.
const Fact kRssiV5[] = {{"version", 12, 1}, {"earfcn", 16, 4}, {"pci", 20, 2}, {"word", 36, 4}};
const Fact kIdentityV2[] = {{"version", 12, 1},     {"plmn", 16, 3, true}, {"valid", 19, 1},
                            {"type", 20, 1},        {"mmegi", 24, 2},      {"mmec", 26, 1},
                            {"m_tmsi", 27, 4, true}};
const Fact kRlcHeader[] = {{"version", 12, 1},     {"subpackets", 13, 1}, {"id", 16, 1},
                           {"sub_version", 17, 1}, {"sub_size", 18, 2},   {"count", 20, 1}};
// Statistics entries: downlink subpacket version 3 (64-bit byte counters
// after each of the first eight counts), uplink version 1.
const Fact kDlEntryV3[] = {
    {"cfg", 0, 1},      {"mode", 1, 1},        {"rst", 2, 4},         {"data", 6, 4},
    {"status", 18, 4},  {"invalid", 30, 4},    {"retx", 42, 4},       {"dup", 54, 4},
    {"dropped", 66, 4}, {"dropped_fc", 78, 4}, {"sdu", 90, 4},        {"nonseq", 102, 4},
    {"ctrl", 106, 4},   {"comp_nack", 110, 4}, {"segm_nack", 114, 4}, {"t_reord", 118, 4}};
const Fact kUlEntryV1[] = {{"cfg", 0, 1},        {"mode", 1, 1},          {"rst", 2, 4},
                           {"data", 6, 4},       {"sdu", 14, 4},          {"ctrl_tx", 22, 4},
                           {"retx", 30, 4},      {"ctrl_rx", 38, 4},      {"comp_nack", 42, 4},
                           {"segm_nack", 46, 4}, {"invalid_ctrl", 50, 4}, {"poll", 54, 4},
                           {"t_poll", 58, 4}};
struct RlcStatsShape {
    size_t start, entry_size;
    std::span<const Fact> entry;
};
const RlcStatsShape kDlStats{29, 262, kDlEntryV3}, kUlStats{25, 126, kUlEntryV1};

Values Decode(std::span<const uint8_t> bytes, std::span<const Fact> facts) {
    Values out;
    for (const Fact& f : facts) {
        size_t n = size_t(std::abs(f.width));
        if (f.offset + n > bytes.size()) {
            ADD_FAILURE() << f.name << " at " << f.offset << " past " << bytes.size() << " bytes";
            continue;
        }
        uint64_t v = 0;
        for (size_t i = 0; i < n; ++i)
            v = f.big_endian ? v << 8 | bytes[f.offset + i]
                             : v | uint64_t(bytes[f.offset + i]) << (8 * i);
        int shift = int(64 - 8 * n);
        out[f.name] = f.width < 0 ? int64_t(v << shift) >> shift : int64_t(v);
    }
    return out;
}

// The RSSI in dBm of a 0xB17F word: v = (dBm + 110) * 16 in bits 10 to 23.
int64_t RssiOfWord(int64_t word) {
    return ((word >> 10) & 0x3FFF) / 16 - 110;
}

// Every "name=value" of `want` (values decimal or 0x hex) is in `got`.
void ExpectHolds(const Values& got, const std::string& want, const std::string& what) {
    std::istringstream pairs(want);
    for (std::string pair; pairs >> pair;) {
        std::string name = pair.substr(0, pair.find('='));
        int64_t value = std::stoll(pair.substr(name.size() + 1), nullptr, 0);
        auto it = got.find(name);
        EXPECT_TRUE(it != got.end() && it->second == value)
            << what << " " << name << ": "
            << (it == got.end() ? "absent" : std::to_string(it->second)) << ", want " << value;
    }
}
// The facts of `record`, in their table's order, are `want`.
void ExpectFacts(const Bytes& record, std::span<const Fact> facts, std::vector<int64_t> want) {
    Values got = Decode(record, facts);
    ASSERT_EQ(facts.size(), want.size());
    for (size_t i = 0; i < facts.size(); ++i)
        EXPECT_EQ(got[facts[i].name], want[i]) << facts[i].name;
}

// An RLC packet's header; its subpacket's size counts from record byte 16
// to the end, padded to 4 bytes.
Values RlcHeader(const Bytes& record) {
    Values header = Decode(record, kRlcHeader);
    EXPECT_EQ(header["sub_size"], int64_t(record.size()) - 16);
    EXPECT_EQ((record.size() - 16) % 4, 0u);
    return header;
}

// A configuration's bearer list as (type, configuration index, kind): the
// released count at 21, the bearer count after the 3-byte released
// records from 24, then entries whose type (1, 2) gives their length.
std::vector<std::array<int, 3>> Bearers(const Bytes& r, size_t type1_size, size_t type2_size) {
    std::vector<std::array<int, 3>> out;
    size_t at = 24 + 3 * size_t(r.at(21));
    size_t count = r.at(at++);
    for (size_t i = 0; i < count && at + 5 <= r.size(); ++i) {
        out.push_back({r[at], r[at + 3], r[at + 4]});
        at += r[at] == 1 ? type1_size : type2_size;
    }
    return out;
}

std::vector<Values> StatsEntries(const Bytes& r, const RlcStatsShape& shape) {
    std::vector<Values> out;
    for (size_t s = 0; s < r.at(20); ++s) {
        size_t at = shape.start + shape.entry_size * s;
        if (at + shape.entry_size > r.size()) {
            ADD_FAILURE() << "entry " << s << " past " << r.size() << " bytes";
            break;
        }
        out.push_back(Decode(std::span(r).subspan(at, shape.entry_size), shape.entry));
    }
    return out;
}

// The statistics entries of the world's bearers: the index, the mode, then
// the counters, which the world's structs list in the entries' order.
template <class Stats>
std::vector<Values> WorldEntries(const std::vector<Stats>& stats, std::span<const Fact> facts) {
    std::vector<Values> out;
    for (const Stats& e : stats) {
        std::array<uint32_t, sizeof e.counters / sizeof(uint32_t)> counters;
        EXPECT_EQ(facts.size(), 2 + counters.size());
        std::memcpy(counters.data(), &e.counters, sizeof counters);
        Values v = {{"cfg", e.bearer.cfg_idx}, {"mode", int(e.bearer.mode)}};
        for (size_t k = 0; k < counters.size() && 2 + k < facts.size(); ++k)
            v[facts[2 + k].name] = counters[k];
        out.push_back(v);
    }
    return out;
}

// Every log record of `code` in a capture, as the file holds it.
std::vector<Bytes> CaptureRecords(const char* file, uint16_t code) {
    std::ifstream in(rt::test::CapturesDir() + "/" + file, std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::vector<Bytes> out;
    dmux::DiagStream stream(nullptr, nullptr, nullptr);
    stream.SetObserver([&](const dmux::DiagFrame& f) {
        if (f.log_code == code) out.emplace_back(f.record.begin(), f.record.end());
    });
    stream.Feed(bytes);
    EXPECT_FALSE(out.empty()) << file << std::hex << " has no 0x" << code;
    return out;
}

// The world's records at one moment, whole (log header and payload).
std::map<uint16_t, Bytes> Records(const LteState& state) {
    std::map<uint16_t, Bytes> out;
    for (const LogPayload& packet : LteLogPayloads(state))
        out[packet.code] = rt::test::DiagLogRecord(packet.code, packet.payload);
    return out;
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

// The decoder against real packets: it must read each capture to the
// values its README gives, or to what the capture's other codes say.
TEST(LteRecordFacts, TheDecoderReadsTheCapturesPublishedValues) {
    if (!rt::test::HaveCaptures())
        GTEST_SKIP() << "captures folder " << rt::test::CapturesDir() << " is absent";
    for (const Bytes& cell : CaptureRecords("mi-core_tmobile.mi2log", 0xB0C2)) {
        EXPECT_EQ(cell.size(), 41u);
        ExpectHolds(Decode(cell, kServingCellV3),
                    "version=3 pci=42 dl_earfcn=2075 ul_earfcn=20075 cell_id=0x567402 tac=0xB001 "
                    "band=4 mcc=310 mnc=260",
                    "tmobile 0xB0C2");
    }
    // ATT-iphone: first RSRP -96.5 dBm, RSRQ -11.625 dB (raw / 16 - 180, - 30);
    // its one 0xB17F names the same cell.
    const char* iphone = "mi-core_ATT-iphone.mi2log";
    ExpectHolds(Decode(CaptureRecords(iphone, 0xB179).at(0), kMeasurementsV4),
                "version=4 index=0 earfcn=5780 pci=405 rsrp=1336 rsrq=294", "ATT-iphone 0xB179");
    Values rssi = Decode(CaptureRecords(iphone, 0xB17F).at(0), kRssiV5);
    ExpectHolds(rssi, "version=5 earfcn=5780 pci=405", "ATT-iphone 0xB17F");
    EXPECT_EQ(RssiOfWord(rssi["word"]), -68);
    // The UE identity's PLMN is the serving cell's: CMCC 460-00, tmobile 310-260.
    ExpectHolds(Decode(CaptureRecords("mi-core_CMCC.mi2log", 0xB0EE).at(0), kIdentityV2),
                "version=2 plmn=0x64F000 valid=1 type=6 mmegi=0x0109 mmec=0x8C m_tmsi=0x7F240DE7",
                "CMCC 0xB0EE");
    ExpectHolds(Decode(CaptureRecords("mi-core_tmobile.mi2log", 0xB0EE).at(0), kIdentityV2),
                "plmn=0x130062", "tmobile 0xB0EE");

    // RLC: ATT-iphone's second configuration lists two SRBs and a DRB, in
    // 9-byte downlink and 14-byte uplink entries.
    const std::vector<std::array<int, 3>> att = {{1, 0x21, 1}, {1, 0x22, 1}, {1, 3, 2}};
    for (auto [code, header, type1] : {std::tuple{0xB081, "version=1 id=0x40 sub_version=1", 9},
                                       {0xB091, "version=1 id=0x45 sub_version=1", 14}}) {
        Bytes config = CaptureRecords(iphone, uint16_t(code)).at(1);
        ExpectHolds(RlcHeader(config), header, "ATT-iphone");
        EXPECT_EQ(Bearers(config, size_t(type1), 0), att) << std::hex << code;
    }
    Bytes dl = CaptureRecords("mi-core_offline_log_example.mi2log", 0xB087).at(0);
    ExpectHolds(RlcHeader(dl), "id=0x42 sub_version=3 count=3", "offline 0xB087");
    ExpectHolds(StatsEntries(dl, kDlStats).at(0), "cfg=0x21 mode=1 data=4 status=5 sdu=4 ctrl=4",
                "offline 0xB087 entry 0");
    Bytes ul = CaptureRecords("mi-core_twilio_nb_open_3.mi2log", 0xB097).at(0);
    EXPECT_EQ(ul.size(), 280u);
    ExpectHolds(RlcHeader(ul), "id=0x47 sub_version=1 count=2", "twilio 0xB097");
    ExpectHolds(StatsEntries(ul, kUlStats).at(1), "cfg=0x23 data=11", "twilio entry 1");
}

// The same decoder on modemsim's packets, for two worlds at moments across
// handovers: every field carries the world's value, and the values its
// scenario fixes.
TEST(LteWorld, PacketsHoldTheWorldAtThePublishedOffsets) {
    struct Case {
        const char* scenario;
        int64_t plmn;  // its MCC and MNC as BCD octets
        const char* cell;
        const char* identity;
        const char* world;
    };
    const Case cases[] = {
        {"{}", 0x130184, "mcc=311 mnc=480 mnc_digits=3", "type=6", ""},
        {R"({"mcc": 234, "mnc": 15, "dl_earfcn": 1300, "ul_earfcn": 19300, "dl_bandwidth_rb": 75,
             "ul_bandwidth_rb": 25, "band": 3, "tac": 77, "rssi": -10,
             "cells": [{"pci": 501, "cell_id": 4000000001, "rsrp": 1000, "rsrq": 160}],
             "ue_identity": {"type": "imsi", "mmegi": 7, "mmec": 8, "m_tmsi": 305419896},
             "wcdma": {"uarfcn": 412, "rscp": [-80, -81, -82, -83, -84]},
             "rlc": {"released": 5, "bearers": [{"cfg_idx": 9, "mode": "UM", "dl_rate": 10},
                                                 {"cfg_idx": 2, "kind": "srb", "ul_rate": 3}]},
             "drift": {"rsrp": 0, "rsrq": 0, "rssi": 0, "rscp": 0, "cdma": 0}})",
         0x32F451,
         "pci=501 cell_id=4000000001 dl_earfcn=1300 ul_earfcn=19300 dl_rb=75 ul_rb=25 band=3 "
         "tac=77 mcc=234 mnc=15 mnc_digits=2",
         "type=1 mmegi=7 mmec=8 m_tmsi=0x12345678",
         "rsrp=1000 rsrq=160 rssi=-10 uarfcn=412 rscps=5"},
    };
    for (const Case& c : cases) {
        LteWorld world(nlohmann::json::parse(c.scenario));
        for (double t : {0.0, 15.2, 31.0, 52.5, 400.0}) {
            SCOPED_TRACE(std::string(c.scenario) + " t=" + std::to_string(t));
            LteState s = world.At(t);
            std::map<uint16_t, Bytes> r = Records(s);
            std::set<uint16_t> codes;
            for (const auto& [code, record] : r) codes.insert(code);
            ASSERT_EQ(codes, kLteCodes);

            EXPECT_EQ(r[0xB0C2].size(), 41u);
            ExpectHolds(Decode(r[0xB0C2], kServingCellV3), c.cell, "0xB0C2");
            ExpectHolds(Decode(r[0xB0EE], kIdentityV2), c.identity, "0xB0EE");
            ExpectHolds({{"rsrp", s.rsrp},
                         {"rsrq", s.rsrq},
                         {"rssi", s.rssi_dbm},
                         {"uarfcn", s.wcdma_uarfcn},
                         {"rscps", int64_t(s.wcdma_rscp.size())}},
                        c.world, "world");
            ExpectFacts(r[0xB0C2], kServingCellV3,
                        {3, s.pci, s.dl_earfcn, s.ul_earfcn, s.dl_bandwidth_rb, s.ul_bandwidth_rb,
                         s.cell_id, s.tac, s.band, s.mcc, s.mnc_digits, s.mnc});
            ExpectFacts(r[0xB179], kMeasurementsV4,
                        {4, 0, s.dl_earfcn, s.pci, s.rsrp, s.rsrq, 0, 0});
            Values rssi = Decode(r[0xB17F], kRssiV5);
            ExpectFacts(r[0xB17F], kRssiV5, {5, s.dl_earfcn, s.pci, rssi["word"]});
            EXPECT_EQ(RssiOfWord(rssi["word"]), s.rssi_dbm);
            EXPECT_EQ(rssi["word"] & 0xFF0003FF, 0) << "only bits 10 to 23";
            ExpectFacts(r[0xB0EE], kIdentityV2,
                        {2, c.plmn, 1, s.identity_type, s.mmegi, s.mmec, s.m_tmsi});

            // No capture has 0xB19B or 0xB185: UARFCN u16 at 16, count at 18,
            // RSCP s16 at 32 + 16 i; three CDMA entries of 6 bytes from 25.
            rt::FieldReader wcdma(r[0xB19B]);
            EXPECT_EQ(wcdma.Get(rt::Field<uint16_t>{16}), s.wcdma_uarfcn);
            ASSERT_EQ(wcdma.Get(rt::Field<uint8_t>{18}), s.wcdma_rscp.size());
            for (size_t i = 1; i <= s.wcdma_rscp.size(); ++i)
                EXPECT_EQ(wcdma.Get(rt::Field<int16_t>{32 + 16 * i}), s.wcdma_rscp[i - 1]);
            rt::FieldReader cdma(r[0xB185]);
            for (size_t k = 0; k < 3; ++k) {
                EXPECT_EQ(cdma.Get(rt::Field<uint16_t>{25 + 6 * k}), s.cdma[k].pilot_pn);
                EXPECT_EQ(cdma.Get(rt::Field<int16_t>{27 + 6 * k}), s.cdma[k].rssi);
                EXPECT_EQ(cdma.Get(rt::Field<int16_t>{29 + 6 * k}), s.cdma[k].ecio);
            }

            std::vector<std::array<int, 3>> bearers;
            for (const RlcBearer& b : s.bearers)
                bearers.push_back({int(b.mode), b.cfg_idx, int(b.kind)});
            EXPECT_EQ(r[0xB081][21], s.rlc_released);
            EXPECT_EQ(Bearers(r[0xB081], 9, 8), bearers);
            EXPECT_EQ(Bearers(r[0xB091], 14, 6), bearers);
            EXPECT_EQ(StatsEntries(r[0xB087], kDlStats), WorldEntries(s.rlc_dl, kDlEntryV3));
            EXPECT_EQ(StatsEntries(r[0xB097], kUlStats), WorldEntries(s.rlc_ul, kUlEntryV1));
            const std::pair<uint16_t, const char*> rlc[] = {
                {0xB081, "version=1 subpackets=1 id=0x40 sub_version=1"},
                {0xB091, "version=1 subpackets=1 id=0x45 sub_version=1"},
                {0xB087, "version=1 subpackets=1 id=0x42 sub_version=3"},
                {0xB097, "version=1 subpackets=1 id=0x47 sub_version=1"}};
            for (auto [code, header] : rlc)
                ExpectHolds(RlcHeader(r[code]), header, "modemsim's RLC packet");
        }
    }
}

// The serving cell holds for a period, then the next of the list serves,
// its frequencies and area with it, round the list.
TEST(LteWorld, HandoverMovesTheServingCellAlongTheList) {
    LteWorld world(nlohmann::json::object());
    double period = world.handover_period_ms() / 1000.0;
    std::vector<std::array<int64_t, 3>> seen;  // PCI, downlink EARFCN, TAC
    for (double at : {0.0, period - 0.01, period + 0.01, 2 * period + 0.01, 3 * period + 0.01}) {
        LteState s = world.At(at);
        seen.push_back({s.pci, s.dl_earfcn, s.tac});
    }
    EXPECT_EQ(seen, (std::vector<std::array<int64_t, 3>>{{87, 5230, 12801},
                                                         {87, 5230, 12801},
                                                         {212, 5230, 12801},
                                                         {405, 2175, 12802},
                                                         {87, 5230, 12801}}));
}

// The data PDUs are the bearer's rate times the time, resets count the
// handovers, SDUs come from PDUs, nothing ever goes down, and a UM bearer
// acknowledges nothing.
TEST(LteWorld, RlcCountersGrowWithTime) {
    LteWorld world(nlohmann::json::object());
    double period = world.handover_period_ms() / 1000.0;
    std::map<std::string, int64_t> last;  // by direction, bearer and counter
    for (double t : {0.0, 1.0, 2.5, 10.0, period + 1, 2 * period + 1, 100.0, 3600.0}) {
        SCOPED_TRACE("t=" + std::to_string(t));
        LteState s = world.At(t);
        struct Direction {
            std::string name;
            std::vector<Values> entries;
            std::map<int64_t, int> rates;  // data PDUs a second, by bearer
            std::vector<std::string> acks;
        };
        const Direction directions[] = {
            {"dl",
             WorldEntries(s.rlc_dl, kDlEntryV3),
             {{3, 900}, {4, 50}},
             {"status", "retx", "ctrl", "comp_nack"}},
            {"ul", WorldEntries(s.rlc_ul, kUlEntryV1), {{3, 150}}, {"retx", "poll", "ctrl_tx"}}};
        for (const Direction& d : directions) {
            for (Values e : d.entries) {
                std::string bearer = d.name + std::to_string(e["cfg"]);
                EXPECT_EQ(e["rst"], int64_t(t / period)) << bearer;
                if (d.rates.count(e["cfg"])) {
                    EXPECT_EQ(e["data"], int64_t(d.rates.at(e["cfg"]) * t)) << bearer;
                }
                EXPECT_LE(e["sdu"], e["data"]) << bearer;
                for (const std::string& ack : d.acks)
                    EXPECT_TRUE(e["mode"] == 1 || e[ack] == 0) << bearer << " is UM: " << ack;
                for (const auto& [name, value] : e) {
                    std::string key = bearer + " " + name;
                    EXPECT_GE(value, last.count(key) ? last[key] : 0) << key;
                    last[key] = value;
                }
            }
        }
    }
    // An hour in, the default bearer has carried a lot.
    EXPECT_GT(last["dl3 data"], 3000000);
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

// A scenario's numbers may be anything JSON can hold: a double far beyond
// any integer is clamped, never cast (which would be undefined).
TEST(LteWorld, NumbersBeyondAnyRangeAreClamped) {
    for (double huge : {-5.5e116, 5.5e116, -1.0e19, 1.0e19}) {
        nlohmann::json section = {{"wcdma", {{"rscp", {huge}}}},
                                  {"cells", {{{"pci", 1}, {"rsrp", huge}}}},
                                  {"rssi", huge}};
        LteState state = LteWorld(section).At(1.0);
        EXPECT_EQ(state.rssi_dbm, huge < 0 ? -110 : -10) << huge;
        ASSERT_EQ(state.wcdma_rscp.size(), 1u);
        EXPECT_EQ(state.wcdma_rscp[0], huge < 0 ? INT16_MIN : INT16_MAX) << huge;
        EXPECT_EQ(state.rsrp, huge < 0 ? INT16_MIN : INT16_MAX) << huge;
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

// End to end through the daemon: the report shows the serving cell that
// modemsim logs in today's versions, on band 66 whose EARFCNs pass 65535,
// and the GERAN cells of its type-4 answer, both from the one world of its
// scenario, with its GUTI and its four bearers; the DIAG library translates
// today's LTE versions, as it does a real capture's, and drops none of the
// LTE packets.
TEST(LteWorldProcess, TheDaemonShowsTheWorldThroughTheTranslator) {
    rt::test::ModemAndDaemon world(R"({"lte": {"period_ms": 100, "rssi": -70,
        "cells": [{"pci": 333, "cell_id": 9, "rsrp": 1200, "rsrq": 160,
                   "dl_earfcn": 66786, "ul_earfcn": 131986, "band": 66}],
        "geran": [{"cells": [{"bsic": 21, "rssi": -810}]}],
        "drift": {"rsrp": 0, "rsrq": 0, "rssi": 0, "geran_rssi": 0}}})");
    ASSERT_TRUE(world.started()) << world.Errors();
    rt::test::DaemonFixture& daemon = world.daemon();
    // lteopinfo does not open the QMI client itself; radionwinfo does.
    ASSERT_NE(daemon.Request("radionwinfo", "1", std::nullopt, 5000), "");
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    const std::vector<std::string> lines = {"lte_pci:n:333",
                                            "lte_dl_freq:n:66786",
                                            "lte_ul_freq:n:131986",
                                            "lte_band:n:66",
                                            "lte_phycellid:n:333",
                                            "lte_earfcn:n:66786",
                                            "lte_serv_cell_rssi:n:-70",
                                            "lte_mmec:n:21",
                                            "rlc_dl_srb_num:n:2",
                                            "rlc_dl_drb_num:n:2",
                                            "rlc_ul_srb_num:n:2",
                                            "rlc_ul_drb_num:n:2",
                                            "lte_rsrp:n:-105",
                                            "lte_rsrq:n:-20",
                                            "lte_geran_bsic1:n:21",
                                            "lte_geran_rssi1:n:-81"};
    std::string report = daemon.ReportHolding("lteopinfo", rt::test::kStatusEutraObject, lines);
    for (const std::string& line : lines)
        EXPECT_NE(report.find(line + "\n"), std::string::npos) << line << " in\n" << report;

    // Code and version as the object names them ("v1/s3": subpacket 3).
    const std::pair<const char*, const char*> counted[] = {{"/B0C2/v3", "translated"},
                                                           {"/B179/v4", "translated"},
                                                           {"/B17F/v5", "translated"},
                                                           {"/B087/v1~1s3", "translated"}};
    nlohmann::json versions;
    auto all_counted = [&] {
        std::string text = daemon.ReadObject(dmux::kDmStatsObject);
        size_t at = text.find("versions:json:");
        if (at == std::string::npos) return false;
        at += std::string("versions:json:").size();
        versions = nlohmann::json::parse(text.substr(at, text.find('\n', at) - at), nullptr, false);
        if (!versions.is_object()) return false;
        for (const auto& [version, verdict] : counted)
            if (versions.value(nlohmann::json::json_pointer(version + std::string("/") + verdict),
                               0) == 0)
                return false;
        return true;
    };
    ASSERT_TRUE(rt::test::Eventually(all_counted)) << versions.dump();
    for (const auto& [code, counts] : versions.items()) {
        if (code[0] != 'B') continue;  // the LTE codes
        for (const auto& [version, count] : counts.items())
            EXPECT_EQ(count.value("dropped", 1), 0) << code << " " << version;
    }

    // `fieldtest dmstats` shows the same counts as a table: each row's
    // numbers under the header's names.
    rt::test::ChildProcess dmstats({rt::test::BinPath("fieldtest"), "dmstats"},
                                   {daemon.broker().env()});
    ASSERT_EQ(dmstats.Wait(), 0) << dmstats.Stderr();
    std::istringstream out(dmstats.Stdout());
    std::vector<std::string> header;
    std::map<std::string, std::vector<std::string>> rows;  // "B0C2 v3" -> its cells
    for (std::string line; std::getline(out, line);) {
        std::istringstream words(line);
        std::vector<std::string> cells{std::istream_iterator<std::string>(words), {}};
        if (cells.size() > 2 && cells[0] == "code" && cells[1] == "version")
            header.assign(cells.begin() + 2, cells.end());
        else if (!header.empty() && cells.size() == header.size() + 2)
            rows[cells[0] + " " + cells[1]].assign(cells.begin() + 2, cells.end());
    }
    auto cell = [&](const std::string& row, const char* name) {
        size_t at = std::find(header.begin(), header.end(), name) - header.begin();
        return at < rows[row].size() ? rows[row][at] : "missing";
    };
    EXPECT_NE(cell("B0C2 v3", "translated"), "0") << dmstats.Stdout();
    EXPECT_NE(cell("B0C2 v3", "translated"), "missing") << dmstats.Stdout();
    EXPECT_EQ(cell("B0C2 v3", "as_is"), "0") << dmstats.Stdout();
}

}  // namespace
}  // namespace modemsim
