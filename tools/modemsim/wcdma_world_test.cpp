// The WCDMA world: its log packets and its type-3 measurement read back at
// the offsets the daemon reads (from the start of a snapshot, and from the
// start of the daemon's 1331-byte response buffer), the world's movement,
// how scenarios override it, and the DIAG side streaming it by the mask.
#include "tools/modemsim/wcdma_world.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <optional>
#include <set>

#include "platform/common/byte_layout.h"
#include "platform/dmux/diag_packet.h"
#include "testsupport/child_process.h"
#include "tools/modemsim/diag_side.h"
#include "tools/modemsim/diag_test_client.h"
#include "tools/modemsim/scenario.h"
#include "tools/modemsim/vendor_service.h"
#include "tools/modemsim/wcdma_log_packets.h"

namespace modemsim {
namespace {

using Bytes = std::vector<uint8_t>;

// What the daemon keeps of each code.
const std::map<uint16_t, size_t> kSnapshotSize = {
    {0x4110, 87},  {0x4111, 694}, {0x4127, 28},  {0x7135, 21}, {0x4005, 558}, {0x421C, 516},
    {0x4138, 169}, {0x4116, 87},  {0x4156, 390}, {0x410C, 29}, {0x4165, 514}, {0x7131, 15},
    {0x7130, 15},  {0x4004, 19},  {0x7136, 30},  {0x4000, 13}, {0x413A, 205},
};

// Unsigned little-endian field of `width` bytes at `offset`; a read past
// the end fails the test.
uint32_t Field(const Bytes& bytes, size_t offset, int width) {
    rt::FieldReader reader(bytes);
    std::optional<uint32_t> value;
    if (width == 1) value = reader.Read(rt::Field<uint8_t>{offset});
    if (width == 2) value = reader.Read(rt::Field<uint16_t>{offset});
    if (width == 4) value = reader.Read(rt::Field<uint32_t>{offset});
    EXPECT_TRUE(value) << "field at " << offset << " of " << bytes.size() << " bytes";
    return value.value_or(0);
}
int S16(const Bytes& bytes, size_t offset) {
    return int16_t(Field(bytes, offset, 2));
}
int S8(const Bytes& bytes, size_t offset) {
    return int8_t(Field(bytes, offset, 1));
}

// The snapshots the daemon would keep of the world at one moment: each log
// record (header and payload) cut to its snapshot size.
std::map<uint16_t, Bytes> Snapshots(const WcdmaState& state) {
    std::map<uint16_t, Bytes> out;
    for (const LogPayload& packet : WcdmaLogPayloads(state)) {
        Bytes record = dmux::BuildLogRecord(packet.code, 0, packet.payload);
        size_t size = kSnapshotSize.at(packet.code);
        EXPECT_GE(record.size(), size) << std::hex << packet.code;
        record.resize(size);
        out[packet.code] = record;
    }
    EXPECT_EQ(out.size(), kSnapshotSize.size()) << "every code, once";
    return out;
}

// The daemon's response buffer: 10 bytes of TLV headers, then the value.
Bytes ResponseBuffer(const VendorService& service, double seconds) {
    Bytes buffer(10, 0);
    Bytes value = service.RatMeasValueAt(3, seconds);
    buffer.insert(buffer.end(), value.begin(), value.end());
    EXPECT_EQ(buffer.size(), kRatMeasResponseSize);
    return buffer;
}

// At several moments, across handovers: the QMI payload and the log
// packets name the same carriers and cells, with the world's values.
TEST(WcdmaWorld, MeasurementAndLogPacketsAgree) {
    auto world = std::make_shared<const WcdmaWorld>(nlohmann::json::object());
    VendorService service(nlohmann::json::object(), world);
    for (double t : {0.0, 2.5, 6.1, 13.0, 19.9, 31.4, 47.0}) {
        SCOPED_TRACE("t=" + std::to_string(t));
        WcdmaState state = world->At(t);
        std::map<uint16_t, Bytes> snap = Snapshots(state);
        Bytes qmi = ResponseBuffer(service, t);
        EXPECT_EQ(Field(qmi, 10, 1), 1u);
        EXPECT_EQ(Field(qmi, 11, 1), 3u);
        EXPECT_EQ(Field(qmi, 12, 1), 1u);

        // Active set: 0x4110 against active-set cells (cell 0 = serving).
        const Bytes& aset = snap[0x4110];
        uint32_t active = Field(aset, 12, 1);
        ASSERT_EQ(active, state.active_set.size());
        EXPECT_EQ(Field(qmi, 25, 1), active);
        EXPECT_EQ(Field(aset, 13, 2), 10700u);
        EXPECT_EQ(Field(qmi, 20, 2), 10700u);
        for (size_t k = 0; k < active; ++k) {
            EXPECT_EQ(Field(aset, 15 + 12 * k + 1, 2), Field(qmi, 106 + 10 * k, 2));
            EXPECT_EQ(Field(aset, 15 + 12 * k + 8, 4), state.active_set[k].cell_id);
            EXPECT_EQ(S16(qmi, 108 + 10 * k), state.active_set[k].ecio);
            EXPECT_EQ(S16(qmi, 110 + 10 * k), state.active_set[k].rscp);
            // Reselection values follow the same cells' Ec/Io and RSCP.
            int ecio = S16(qmi, 108 + 10 * k), rscp = S16(qmi, 110 + 10 * k);
            EXPECT_EQ(S16(snap[0x4005], 19 + 10 * k), -rscp / 10 + 115);
            EXPECT_EQ(S16(snap[0x4005], 22 + 10 * k), -ecio / 2 + 24);
        }

        // Monitored set: the serving carrier's block holds the intra cells,
        // the other blocks are the inter-frequency blocks, in order.
        const Bytes& mset = snap[0x4111];
        uint32_t blocks = Field(mset, 12, 1);
        ASSERT_EQ(blocks, 3u);
        EXPECT_EQ(Field(mset, 13, 2), Field(qmi, 20, 2));
        uint32_t intra = Field(mset, 13 + 2, 1);
        ASSERT_EQ(Field(qmi, 24, 1), intra);
        for (size_t d = 0; d < intra; ++d) {
            EXPECT_EQ(Field(mset, 13 + 3 + 7 * d, 2), Field(qmi, 26 + 10 * d, 2));
            EXPECT_EQ(Field(mset, 13 + 3 + 7 * d + 3, 4), state.monitored_intra[d].cell_id);
        }
        ASSERT_EQ(Field(qmi, 166, 2), 2u);
        for (size_t f = 0; f < 2; ++f) {
            size_t block = 13 + 227 * (f + 1), qmi_block = 168 + 102 * f;
            EXPECT_EQ(Field(mset, block, 2), Field(qmi, qmi_block, 2));
            EXPECT_NE(Field(mset, block, 2), 10700u);
            uint32_t cells = Field(mset, block + 2, 1);
            ASSERT_EQ(Field(qmi, qmi_block + 4, 2), cells);
            for (size_t c = 0; c < cells; ++c) {
                EXPECT_EQ(Field(mset, block + 3 + 7 * c, 2), Field(qmi, qmi_block + 6 + 12 * c, 2));
                EXPECT_EQ(S16(qmi, qmi_block + 6 + 12 * c + 4), state.inter_freq[f].cells[c].rscp);
            }
        }
        ASSERT_EQ(Field(qmi, 372, 2), 2u);
        EXPECT_EQ(Field(qmi, 374, 2), 128u);
        EXPECT_EQ(Field(qmi, 376, 2), 33u);

        // Identities: the serving cell of 0x4127 is active-set cell 0.
        const Bytes& cell = snap[0x4127];
        EXPECT_EQ(Field(cell, 20, 4), Field(aset, 15 + 8, 4));
        EXPECT_EQ(Field(cell, 24, 2), 3u);
        EXPECT_EQ(Field(cell, 26, 1) & 1, 1u);  // not barred
        const Bytes& location = snap[0x7135];
        uint32_t o1 = Field(location, 14, 1), o2 = Field(location, 15, 1),
                 o3 = Field(location, 16, 1);
        EXPECT_EQ(100 * (o1 & 15) + 10 * (o1 >> 4) + (o2 & 15), 310u);
        EXPECT_NE(o2 >> 4, 15u);  // three-digit MNC
        EXPECT_EQ(100 * (o3 & 15) + 10 * (o3 >> 4) + (o2 >> 4), 410u);
        EXPECT_EQ(Field(location, 17, 2), 11023u);
        EXPECT_EQ(Field(location, 19, 1), 7u);

        // HSPA: a type A CQI in format 1 at the reported position.
        const Bytes& cqi = snap[0x421C];
        EXPECT_EQ(Field(cqi, 12, 1), 1u);
        uint32_t position = Field(cqi, 13, 1);
        ASSERT_LT(position, 250u);
        uint32_t sample = Field(cqi, 16 + 2 * position, 2);
        EXPECT_EQ(sample & 3, 2u);
        EXPECT_EQ(int(sample >> 2 & 0xFF), state.cqi);
        const Bytes& rate = snap[0x4138];
        EXPECT_EQ(Field(rate, 26 + 39 * Field(rate, 12, 1), 2), state.hsdpa_rate);
        const Bytes& ue = snap[0x4156];
        EXPECT_EQ(Field(ue, 12, 1), 2u);
        EXPECT_EQ(Field(ue, 14, 2), Field(qmi, 374, 2));  // IRAT channel: GSM cell 0
        EXPECT_EQ(S8(ue, 16), S16(qmi, 378) / 10);        // its RSSI in dBm

        // Dedicated channel.
        const Bytes& trch = snap[0x4116];
        ASSERT_EQ(Field(trch, 12, 1), 2u);
        EXPECT_EQ(Field(trch, 15, 1), 5u);
        EXPECT_EQ(Field(trch, 15 + 9, 1), 6u);
        EXPECT_EQ(Field(trch, 20 + 9, 4), state.transport_channels[1].bler);
        const Bytes& tx = snap[0x410C];
        EXPECT_EQ(S8(tx, 12), state.tx_power);
        EXPECT_EQ(Field(tx, 16, 1), 1u);
        EXPECT_EQ(Field(tx, 17, 1), 1u);
        EXPECT_EQ((S16(snap[0x4165], 14) + 512) / 10 - 106, state.carrier_rssi);
    }
}

TEST(WcdmaWorld, ValuesMoveButStayWithinTheirBounds) {
    WcdmaWorld world(nlohmann::json::object());
    const nlohmann::json& s = world.settings();
    std::map<uint16_t, int> ecio_base, rscp_base;
    for (const auto& cell : s["cells"]) {
        ecio_base[cell["psc"].get<uint16_t>()] = cell["ecio"].get<int>();
        rscp_base[cell["psc"].get<uint16_t>()] = cell["rscp"].get<int>();
    }
    std::set<int> rscps, ecios, tx_powers, cqis, rssis, gsm_rssis;
    for (int ms = 0; ms <= 40000; ms += 250) {
        WcdmaState state = world.At(ms / 1000.0);
        std::vector<UmtsCell> all = state.active_set;
        all.insert(all.end(), state.monitored_intra.begin(), state.monitored_intra.end());
        for (const UmtsCell& cell : all) {
            EXPECT_LE(std::abs(cell.ecio - ecio_base[cell.psc]), 4) << ms;
            EXPECT_LE(std::abs(cell.rscp - rscp_base[cell.psc]), 60) << ms;
            if (cell.psc == 100) ecios.insert(cell.ecio), rscps.insert(cell.rscp);
        }
        EXPECT_LE(std::abs(state.tx_power - -5), 6) << ms;
        EXPECT_LE(std::abs(state.cqi - 22), 4) << ms;
        EXPECT_LE(std::abs(state.carrier_rssi - -72), 4) << ms;
        EXPECT_LE(std::abs(state.gsm[0].rssi - -880), 40) << ms;
        tx_powers.insert(state.tx_power);
        cqis.insert(state.cqi);
        rssis.insert(state.carrier_rssi);
        gsm_rssis.insert(state.gsm[0].rssi);
        // The same moment is the same world.
        EXPECT_EQ(world.At(ms / 1000.0).active_set[0].rscp, state.active_set[0].rscp);
    }
    // Over a whole drift period every value sweeps most of its range.
    for (const auto* seen : {&rscps, &ecios, &tx_powers, &cqis, &rssis, &gsm_rssis})
        EXPECT_GE(seen->size(), 5u);
}

std::vector<uint16_t> Pscs(const std::vector<UmtsCell>& cells) {
    std::vector<uint16_t> out;
    for (const UmtsCell& cell : cells) out.push_back(cell.psc);
    return out;
}

TEST(WcdmaWorld, SoftHandoverMovesTheActiveSetOneCellAlong) {
    WcdmaWorld world(nlohmann::json::object());
    double period = world.handover_period_ms() / 1000.0;
    struct Case {
        double at;
        std::vector<uint16_t> active, monitored;
    };
    const Case cases[] = {
        {0.0, {100, 200}, {300, 400}},
        {period - 0.01, {100, 200}, {300, 400}},
        {period + 0.01, {200, 300}, {400, 100}},
        {2 * period + 0.01, {300, 400}, {100, 200}},
        {3 * period + 0.01, {400, 100}, {200, 300}},
        {4 * period + 0.01, {100, 200}, {300, 400}},
    };
    for (const Case& c : cases) {
        WcdmaState state = world.At(c.at);
        EXPECT_EQ(Pscs(state.active_set), c.active) << c.at;
        EXPECT_EQ(Pscs(state.monitored_intra), c.monitored) << c.at;
        // The log's active set follows: its first cell is the new serving cell.
        Bytes aset = Snapshots(state)[0x4110];
        EXPECT_EQ(Field(aset, 16, 2), c.active[0]) << c.at;
        EXPECT_EQ(Field(Snapshots(state)[0x4127], 20, 4), state.active_set[0].cell_id);
    }
}

TEST(WcdmaWorld, ScenarioSectionOverridesTheDefault) {
    WcdmaWorld world(nlohmann::json::parse(R"({
        "uarfcn": 10650, "active_set_size": 3,
        "cells": [{"psc": 7, "cell_id": 70, "ecio": 6, "rscp": 800},
                  {"psc": 8, "cell_id": 80, "ecio": 8, "rscp": 850},
                  {"psc": 9, "cell_id": 90, "ecio": 9, "rscp": 870}],
        "identity": {"mcc": 234, "mnc": 15, "barred": true},
        "hspa": {"cqi_format": 0, "cqi_type": "B"},
        "drift": {"ecio": 0, "rscp": 0, "cqi": 0}})"));
    WcdmaState state = world.At(1.0);
    std::map<uint16_t, Bytes> snap = Snapshots(state);
    EXPECT_EQ(Field(snap[0x4110], 12, 1), 3u);
    EXPECT_EQ(Field(snap[0x4110], 13, 2), 10650u);
    EXPECT_EQ(Field(snap[0x4111], 12, 1), 2u);  // no intra cell left: the two inter blocks
    EXPECT_EQ(Field(snap[0x4111], 13, 2), 10563u);
    EXPECT_EQ(Field(snap[0x4127], 26, 1) & 1, 0u);  // barred
    // MCC 234, two-digit MNC 15: 32 F4 51.
    EXPECT_EQ(Field(snap[0x7135], 14, 1), 0x32u);
    EXPECT_EQ(Field(snap[0x7135], 15, 1), 0xF4u);
    EXPECT_EQ(Field(snap[0x7135], 16, 1), 0x51u);
    // Format 0, type B: bit 0 clear, the CQI in bits 1 to 8.
    EXPECT_EQ(Field(snap[0x421C], 12, 1), 0u);
    EXPECT_EQ(Field(snap[0x421C], 16, 2), 22u << 1);
    EXPECT_EQ(state.active_set[0].rscp, 800);
}

// The packets of umtsopinfo and bearer: a periodic location update at the
// start of every update period, and a new RAB every RAB period, its QoS
// profile in 0x7136 and its entry selected in 0x413A.
TEST(WcdmaWorld, LocationUpdatesAndNewRabsOverTime) {
    WcdmaWorld world(nlohmann::json::parse(R"({
        "mobility": {"drx": 6, "update_period_ms": 10000, "update_ms": 2000},
        "bearers": {"rab_period_ms": 7000, "rabs": [
            {"rab_id": 9, "qos": {"connection_id": 5, "traffic_class": 3, "max_bit_rate_dl": 254}},
            {"rab_id": 12, "qos": {"connection_id": 6, "traffic_class": 2, "transfer_delay": 17,
                                   "guaranteed_bit_rate_dl": 999}}]}})"));
    struct Case {
        double at;
        unsigned mm_status;  // the GMM status follows it
        unsigned selector;
        unsigned rab_id;
        unsigned traffic_class;
    };
    const Case cases[] = {
        {0.5, 1, 0, 9, 3},   {2.5, 0, 0, 9, 3},  {7.5, 0, 1, 12, 2},
        {10.5, 1, 1, 12, 2}, {14.5, 0, 0, 9, 3}, {23.5, 0, 1, 12, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("t=" + std::to_string(c.at));
        std::map<uint16_t, Bytes> snap = Snapshots(world.At(c.at));
        EXPECT_EQ(Field(snap[0x7131], 14, 1), c.mm_status);
        EXPECT_EQ(Field(snap[0x7130], 14, 1), c.mm_status);
        EXPECT_EQ(Field(snap[0x4004], 12, 2), 6u);
        EXPECT_EQ(Field(snap[0x413A], 12, 1), c.selector);
        EXPECT_EQ(Field(snap[0x413A], 13, 2), 9u);
        EXPECT_EQ(Field(snap[0x413A], 19, 2), 12u);
        EXPECT_EQ(Field(snap[0x413A], 13 + 6 * c.selector, 2), c.rab_id);
        EXPECT_EQ(Field(snap[0x7136], 18, 1), c.traffic_class);
        if (c.rab_id == 12) {
            EXPECT_EQ(Field(snap[0x7136], 12, 1), 6u);
            EXPECT_EQ(Field(snap[0x7136], 26, 1), 17u);
            EXPECT_EQ(Field(snap[0x7136], 29, 1), 255u);  // a code is one byte: clamped
            EXPECT_EQ(Field(snap[0x7136], 23, 1), 0u);    // not given: 0
        } else {
            EXPECT_EQ(Field(snap[0x7136], 12, 1), 5u);
            EXPECT_EQ(Field(snap[0x7136], 23, 1), 254u);
        }
    }
    // The compressed-mode flag is the HSPA state's.
    std::map<uint16_t, Bytes> snap =
        Snapshots(WcdmaWorld(nlohmann::json::parse(R"({"hspa": {"irat_cm": 1}})")).At(1.0));
    EXPECT_EQ(Field(snap[0x4000], 12, 1), 1u);
    EXPECT_EQ(Field(snap[0x4156], 13, 1), 1u);
    // No RAB listed: no entry, no profile.
    snap = Snapshots(WcdmaWorld(nlohmann::json::parse(R"({"bearers": {"rabs": []}})")).At(1.0));
    EXPECT_EQ(Field(snap[0x413A], 13, 2), 0u);
    EXPECT_EQ(Field(snap[0x7136], 18, 1), 0u);
}

TEST(WcdmaWorld, CqiSamplesInBothFormats) {
    struct Case {
        int format;
        CqiType type;
        int cqi;
        uint16_t sample;
    };
    const Case cases[] = {
        {0, CqiType::kTypeA, 9, 0x0013},   {0, CqiType::kTypeB, 0, 0x0000},
        {1, CqiType::kDtx, 12, 0x0000},    {1, CqiType::kTypeB, 31, 0x007D},
        {1, CqiType::kTypeA, 255, 0x03FE}, {1, CqiType::kDchspa, 1, 0x0007},
    };
    for (const Case& c : cases) {
        WcdmaState state;
        state.cqi_format = c.format;
        state.cqi_type = c.type;
        state.cqi = c.cqi;
        EXPECT_EQ(CqiSample(state), c.sample) << c.format << " " << c.cqi;
    }
}

TEST(WcdmaWorld, ExplicitQmiValuesAreLaidOverTheWorld) {
    auto world = std::make_shared<const WcdmaWorld>(nlohmann::json::object());
    VendorService service(nlohmann::json::parse(R"({"umts": {"serving_uarfcn": 9999,
        "active_set": [{"psc": 7, "ecio": 1, "rscp": 2}]}})"),
                          world);
    Bytes qmi = ResponseBuffer(service, 0.0);
    EXPECT_EQ(Field(qmi, 20, 2), 9999u);
    EXPECT_EQ(Field(qmi, 25, 1), 1u);
    EXPECT_EQ(Field(qmi, 106, 2), 7u);
    EXPECT_EQ(S16(qmi, 110), 2);
    // What the section does not name still comes from the world.
    EXPECT_EQ(Field(qmi, 24, 1), 2u);
    EXPECT_EQ(Field(qmi, 26, 2), 300u);

    // A disabled world leaves the section's values alone.
    auto off = std::make_shared<const WcdmaWorld>(nlohmann::json{{"enabled", false}});
    VendorService plain(DefaultScenario()["qmi"], off);
    qmi = ResponseBuffer(plain, 0.0);
    EXPECT_EQ(Field(qmi, 25, 1), 2u);
    EXPECT_EQ(Field(qmi, 24, 1), 1u);
    EXPECT_EQ(Field(qmi, 118, 2), 20u);
}

// While a world is on, the QMI side answers from it: a loaded scenario
// keeps only the measurement values its file itself gives.
TEST(ModemsimScenario, LoadedScenarioKeepsOnlyTheFilesOwnMeasurementValues) {
    rt::test::TempDir dir;
    struct Case {
        const char* file;
        const char* section;    // of "qmi"
        nlohmann::json values;  // null: none
    };
    const Case cases[] = {
        {R"({})", "umts", nullptr},
        {R"({"qmi": {"umts": {"valid": 0}}})", "umts", {{"valid", 0}}},
        {R"({"wcdma": {"enabled": false}})", "umts", DefaultScenario()["qmi"]["umts"]},
        {R"({})", "lte_geran", nullptr},
        {R"({"qmi": {"lte_geran": {"valid": 0}}})", "lte_geran", {{"valid", 0}}},
        {R"({"lte": {"enabled": false}})", "lte_geran", DefaultScenario()["qmi"]["lte_geran"]},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.section) + " " + c.file);
        std::string path = dir.file("scenario.json");
        std::ofstream(path) << c.file;
        nlohmann::json scenario;
        std::string error;
        ASSERT_TRUE(LoadScenario(path, &scenario, &error)) << error;
        if (c.values.is_null()) {
            EXPECT_FALSE(scenario["qmi"].contains(c.section));
        } else {
            EXPECT_EQ(scenario["qmi"][c.section], c.values);
        }
    }
}

TEST(WcdmaWorldDiag, CodesArriveOnlyWhileTheirMaskBitsAreSet) {
    rt::test::TempDir dir;
    std::string path = dir.file("diag.sock");
    auto world = std::make_shared<const WcdmaWorld>(nlohmann::json{{"period_ms", 20}});
    // No RRC timeline; 0x4127 comes from a scripted record instead of the world.
    nlohmann::json diag = {
        {"rrc_states", nlohmann::json::array()},
        {"records", {{{"code", "0x4127"}, {"payload", "AB"}, {"period_ms", 20}}}}};
    DiagSide side("unix:" + path, "", diag, world);
    std::string error;
    ASSERT_TRUE(side.Start(&error)) << error;
    DiagClient client(path);
    ASSERT_TRUE(client.connected());

    EXPECT_TRUE(client.Collect(150).empty());  // nothing enabled yet

    ASSERT_TRUE(client.Enable(4, {0x4110, 0x4127, 0x421C}));
    client.Collect(100);  // what was under way before the mask took hold
    std::map<uint16_t, Bytes> got = client.Collect(300);
    EXPECT_EQ(Codes(got), (std::set<uint16_t>{0x4110, 0x4127, 0x421C}));
    EXPECT_EQ(got[0x4127], Bytes{0xAB});  // the record, not the world's packet
    EXPECT_EQ(got[0x4110].size(), 75u);

    ASSERT_TRUE(client.Enable(4, {0x4111, 0x4005, 0x4138, 0x4116, 0x4156, 0x410C, 0x4165}));
    ASSERT_TRUE(client.Enable(7, {0x7135}));
    client.Collect(100);
    got = client.Collect(300);
    EXPECT_EQ(Codes(got),
              (std::set<uint16_t>{0x4111, 0x4005, 0x4138, 0x4116, 0x4156, 0x410C, 0x4165, 0x7135}));
    for (const auto& [code, payload] : got)
        EXPECT_GE(12 + payload.size(), kSnapshotSize.at(code)) << std::hex << code;

    ASSERT_TRUE(client.Enable(4, {}));
    ASSERT_TRUE(client.Enable(7, {}));
    client.Collect(100);
    EXPECT_TRUE(client.Collect(200).empty());
    side.Stop();
}

}  // namespace
}  // namespace modemsim
