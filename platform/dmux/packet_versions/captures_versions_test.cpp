// Real captures replayed through the library as the daemon gets them: the
// translated fields, read at the daemon's offsets, are the decoded values
// the captures' README gives; multi-SIM captures give one subscription;
// corrupted copies of a capture deliver nothing an intact packet did not.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/common/byte_layout.h"
#include "platform/dmux/diag_stream.h"
#include "platform/dmux/log_layouts.h"
#include "testsupport/child_process.h"

namespace dmux {
namespace {

namespace t = log_layout;
using Bytes = std::vector<uint8_t>;

Bytes ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Replay {
    std::multimap<uint16_t, Bytes> records;  // delivered, in order per code
    DiagStreamStats stats;
    std::vector<VersionCount> versions;
    std::vector<Bytes> Of(uint16_t code) const {
        std::vector<Bytes> out;
        auto [a, b] = records.equal_range(code);
        for (auto it = a; it != b; ++it) out.push_back(it->second);
        return out;
    }
    VersionCount Count(uint16_t code, PacketVersion v) const {
        for (const auto& c : versions)
            if (c.code == code && c.version == v) return c;
        return {code, v, 0, 0, 0};
    }
};

void Collect(void* context, uint16_t code, std::span<const uint8_t> record) {
    static_cast<Replay*>(context)->records.emplace(code, Bytes(record.begin(), record.end()));
}

Replay ReplayBytes(const Bytes& bytes, uint32_t subscription = DiagStream::kFirstSubscription) {
    Replay replay;
    DiagStream stream(nullptr, Collect, &replay);
    stream.SetSubscription(subscription);
    stream.Feed(bytes);
    stream.Finish();
    replay.stats = stream.stats();
    replay.versions = stream.versions().Sorted();
    return replay;
}

Replay ReplayCapture(const char* file, uint32_t subscription = DiagStream::kFirstSubscription) {
    return ReplayBytes(ReadAll(rt::test::CapturesDir() + "/" + file), subscription);
}

template <class T>
T Get(const Bytes& r, rt::Field<T> f) {
    return rt::FieldReader(r).Get(f);
}

double Rsrp(const Bytes& r) {
    return Get(r, t::LteServingMeasurements::kRawRsrp) / 16.0 - 180;
}

#define REQUIRE_CAPTURES()         \
    if (!rt::test::HaveCaptures()) \
    GTEST_SKIP() << "captures folder " << rt::test::CapturesDir() << " is absent"

// The serving cell, README values, at the daemon's offsets.
struct ServingCellCase {
    const char* file;
    uint8_t version;  // as sent
    uint16_t pci;
    uint16_t dl, ul;
    uint32_t band;
    uint16_t mcc, mnc;
    uint16_t tac;
    uint32_t cell_id;  // 0: not given
};
void PrintTo(const ServingCellCase& c, std::ostream* os) {
    *os << c.file;
}

class ServingCellTest : public ::testing::TestWithParam<ServingCellCase> {};

TEST_P(ServingCellTest, ReadmeValuesAtTheDaemonsOffsets) {
    REQUIRE_CAPTURES();
    const ServingCellCase& c = GetParam();
    Replay replay = ReplayCapture(c.file);
    auto cells = replay.Of(0xB0C2);
    ASSERT_FALSE(cells.empty());
    bool found = false;
    for (const Bytes& r : cells) {
        ASSERT_EQ(r.size(), t::LteServingCell::kSize);
        EXPECT_EQ(Get(r, t::kVersion), t::LteServingCell::kVersionValue);
        EXPECT_EQ(Get(r, t::kRecordLength), t::LteServingCell::kSize);
        if (Get(r, t::LteServingCell::kPci) != c.pci) continue;
        found = true;
        EXPECT_EQ(Get(r, t::LteServingCell::kDlEarfcn), c.dl);
        EXPECT_EQ(Get(r, t::LteServingCell::kUlEarfcn), c.ul);
        EXPECT_EQ(Get(r, t::LteServingCell::kDlEarfcnCut), c.dl);
        EXPECT_EQ(Get(r, t::LteServingCell::kUlEarfcnCut), c.ul);
        EXPECT_EQ(Get(r, t::LteServingCell::kBand), c.band);
        EXPECT_EQ(Get(r, t::LteServingCell::kMcc), c.mcc);
        EXPECT_EQ(Get(r, t::LteServingCell::kMnc), c.mnc);
        if (c.tac != 0) {
            EXPECT_EQ(Get(r, t::LteServingCell::kTac), c.tac);
        }
        if (c.cell_id != 0) {
            EXPECT_EQ(Get(r, t::LteServingCell::kCellId), c.cell_id);
        }
    }
    EXPECT_TRUE(found) << "no serving cell with PCI " << c.pci;
    VersionCount count = replay.Count(0xB0C2, {c.version, PacketVersion::kNone});
    // Every version gets the whole EARFCNs appended: all are translated.
    EXPECT_EQ(count.translated, cells.size());
    // None dropped but the other subscription's (the dual-SIM Mi10's).
    EXPECT_EQ(count.dropped, count.DroppedFor(DropReason::kOtherSubscription));
}

const ServingCellCase kServingCells[] = {
    {"mi-core_qmdl_example.qmdl", 2, 87, 5780, 23780, 17, 310, 410, 0x8740, 0x086D0B0F},
    {"mi-core_CMCC.mi2log", 3, 337, 37900, 37900, 38, 460, 0, 0x11D6, 0x111B903},
    {"mi-core_tmobile.mi2log", 3, 42, 2075, 20075, 4, 310, 260, 0xB001, 0x567402},
    {"mi-core_Mi10_20201116_195935.mi2log", 3, 162, 1350, 19350, 3, 460, 0, 0, 0},
};
INSTANTIATE_TEST_SUITE_P(Captures, ServingCellTest, ::testing::ValuesIn(kServingCells),
                         [](const auto& info) { return std::to_string(info.index); });

// Serving-cell measurements, v4 in every capture that has them: the
// primary cell's are delivered with the README's values; carrier-
// aggregation secondary cells' (index 1) are dropped and counted as such.
TEST(CaptureVersionsTest, ServingMeasurementsV4) {
    REQUIRE_CAPTURES();
    struct Case {
        const char* file;
        uint32_t earfcn, pci;  // 0: not checked
        double rsrp_min, rsrp_max;
        uint64_t primary, secondary;
        uint32_t secondary_earfcn;
    };
    const Case cases[] = {
        {"mi-core_tmobile.mi2log", 2075, 42, -113.6, -109.4, 0, 0, 0},
        {"mi-core_ATT.mi2log", 5780, 185, -109.8, -105.9, 216, 7, 0},
        {"mi-core_offline_log_example.mi2log", 0, 0, 0, 0, 14, 1, 1975},
    };
    for (const Case& c : cases) {
        Replay replay = ReplayCapture(c.file);
        auto meas = replay.Of(0xB179);
        ASSERT_FALSE(meas.empty()) << c.file;
        VersionCount count = replay.Count(0xB179, {4, PacketVersion::kNone});
        EXPECT_EQ(count.translated, c.primary != 0 ? c.primary : meas.size()) << c.file;
        EXPECT_EQ(count.dropped, c.secondary) << c.file;
        EXPECT_EQ(count.DroppedFor(DropReason::kSecondaryCell), c.secondary) << c.file;
        double lo = 0, hi = -1000;
        for (const Bytes& r : meas) {
            ASSERT_EQ(r.size(), t::LteServingMeasurements::kSize);
            EXPECT_NE(Get(r, t::LteServingMeasurements::kEarfcn), c.secondary_earfcn) << c.file;
            if (c.earfcn == 0) continue;
            EXPECT_EQ(Get(r, t::LteServingMeasurements::kEarfcn), c.earfcn) << c.file;
            EXPECT_EQ(Get(r, t::LteServingMeasurements::kPci), c.pci) << c.file;
            lo = std::min(lo, Rsrp(r));
            hi = std::max(hi, Rsrp(r));
        }
        if (c.earfcn == 0) continue;
        EXPECT_NEAR(lo, c.rsrp_min, 0.05) << c.file;
        EXPECT_NEAR(hi, c.rsrp_max, 0.05) << c.file;
    }
}

// RLC downlink statistics: subpacket v3 becomes v2 with the same bearers;
// the Pixel 5's undocumented layout is dropped.
TEST(CaptureVersionsTest, RlcDownlinkStatistics) {
    REQUIRE_CAPTURES();
    // One entry of each file's first packet, as the capture holds it.
    struct Case {
        const char* file;
        size_t entry;
        uint8_t cfg_idx, mode;
        uint32_t data_pdus, data_bytes, status, status_bytes;
    };
    const Case cases[] = {
        {"mi-core_offline_log_example.mi2log", 0, 0x21, 1, 4, 342, 5, 10},
        {"mi-core_twilio_nb_open_3.mi2log", 1, 0x23, 0, 7, 271, 6, 12},
    };
    for (const Case& c : cases) {
        const char* file = c.file;
        Replay replay = ReplayCapture(file);
        auto stats = replay.Of(0xB087);
        ASSERT_FALSE(stats.empty()) << file;
        for (const Bytes& r : stats) {
            size_t n = Get(r, t::RlcDlStats::kCount);
            ASSERT_EQ(r.size(), t::RlcDlStats::kHeaderSize + t::RlcDlStats::kEntrySize * n);
            EXPECT_EQ(Get(r, t::kSubpacketVersion), 2);
        }
        using E = t::RlcDlStats;
        Bytes entry(stats[0].begin() + E::kHeaderSize + E::kEntrySize * c.entry,
                    stats[0].begin() + E::kHeaderSize + E::kEntrySize * (c.entry + 1));
        EXPECT_EQ(Get(entry, E::kCfgIdx), c.cfg_idx) << file;
        EXPECT_EQ(Get(entry, E::kMode), c.mode) << file;
        EXPECT_EQ(Get(entry, E::kNumDataPdu), c.data_pdus) << file;
        EXPECT_EQ(Get(entry, E::kDataPduBytes), c.data_bytes) << file;
        EXPECT_EQ(Get(entry, E::kNumStatusRxed), c.status) << file;
        EXPECT_EQ(Get(entry, E::kStatusRxedBytes), c.status_bytes) << file;
        EXPECT_EQ(replay.Count(0xB087, {1, 3}).translated, stats.size());
    }
    Replay pixel = ReplayCapture("mi-core_Pixel5_20230212_113941.qmdl");
    EXPECT_TRUE(pixel.Of(0xB087).empty());
    EXPECT_EQ(pixel.Count(0xB087, {0x31, PacketVersion::kNone}).dropped, 5u);
    // Uplink statistics and both configurations come in the daemon's layout.
    Replay twilio = ReplayCapture("mi-core_twilio_nb_open_3.mi2log");
    EXPECT_EQ(twilio.Count(0xB097, {1, 1}).as_is, 6u);
    EXPECT_EQ(twilio.Count(0xB081, {1, 1}).as_is, 1u);
    // Its uplink configuration is subpacket version 2, a layout not known.
    EXPECT_EQ(twilio.Count(0xB091, {1, 2}).dropped, 1u);
}

// Every version the captures hold for a code the daemon reads is known,
// and no capture's version goes unhandled.
TEST(CaptureVersionsTest, EveryCapturedVersionIsKnown) {
    REQUIRE_CAPTURES();
    const uint16_t versioned[] = {0xB0C2, 0xB0EE, 0xB179, 0xB17F, 0xB081, 0xB091, 0xB087, 0xB097};
    for (const char* file :
         {"mi-core_ATT-iphone.mi2log", "mi-core_ATT.mi2log", "mi-core_CMCC.mi2log",
          "mi-core_Mi10_20201116_123435.mi2log", "mi-core_Mi10_20201116_195935.mi2log",
          "mi-core_Pixel5_20230212_113941.qmdl", "mi-core_attach_sample.mi2log",
          "mi-core_mobility_sample.mi2log", "mi-core_offline_log_example.mi2log",
          "mi-core_qmdl_example.qmdl", "mi-core_sprint.mi2log", "mi-core_tmobile.mi2log",
          "mi-core_twilio_nb_open_3.mi2log", "mi-core_volte_sample.mi2log"}) {
        Replay replay = ReplayCapture(file);
        for (const VersionCount& c : replay.versions) {
            if (std::find(std::begin(versioned), std::end(versioned), c.code) ==
                std::end(versioned))
                continue;
            bool known = false;
            for (const KnownVersion& k : KnownVersions()) {
                if (k.code != c.code || k.version != c.version) continue;
                known = true;
                if (k.verdict == VersionVerdict::kAsIs) {
                    EXPECT_EQ(c.as_is, c.as_is + c.translated);
                }
                if (k.verdict == VersionVerdict::kTranslated) {
                    EXPECT_EQ(c.as_is, 0u);
                }
            }
            EXPECT_TRUE(known) << file << std::hex << " code 0x" << c.code << " "
                               << VersionText(c.version);
        }
    }
}

// Multi-SIM: the first subscription by default, or the one asked for;
// never packets of both.
TEST(CaptureVersionsTest, OneSubscriptionOnly) {
    REQUIRE_CAPTURES();
    struct Case {
        const char* file;
        uint32_t ask;
        uint32_t kept;
        uint64_t delivered, skipped;
    };
    const Case cases[] = {
        {"mi-core_Mi10_20201116_195935.mi2log", 0, 1, 663, 657},
        {"mi-core_Mi10_20201116_195935.mi2log", 2, 2, 657, 663},
        {"mi-core_Mi10_20201116_123435.mi2log", 0, 1, 614, 313},
        {"mi-core_Mi10_20201116_123435.mi2log", 2, 2, 313, 614},
    };
    for (const Case& c : cases) {
        Bytes bytes = ReadAll(rt::test::CapturesDir() + "/" + c.file);
        Replay replay;
        DiagStream stream(nullptr, Collect, &replay);
        stream.SetSubscription(c.ask);
        std::set<uint32_t> seen;
        stream.Feed(bytes);
        stream.Finish();
        EXPECT_EQ(stream.subscription(), c.kept) << c.file;
        EXPECT_EQ(stream.stats().delivered + stream.stats().dropped, c.delivered) << c.file;
        EXPECT_EQ(stream.stats().other_subscription, c.skipped) << c.file;
        uint64_t skipped_by_code = 0;
        for (const VersionCount& v : stream.versions().Sorted())
            skipped_by_code += v.DroppedFor(DropReason::kOtherSubscription);
        EXPECT_EQ(skipped_by_code, c.skipped) << c.file;
        // Both subscriptions camp on the same cell here, so check the
        // records came from the kept subscription by parsing them again.
        DiagStream check(nullptr, nullptr, nullptr);
        check.SetObserver([&](const DiagFrame& f) {
            if (f.wrapped) seen.insert(f.subscription);
        });
        check.Feed(bytes);
        EXPECT_EQ(seen.size(), 2u) << c.file;
    }
}

// Frames shuffled, cut short or bit-flipped: every delivered record is one
// the intact capture delivered.
TEST(CaptureVersionsTest, CorruptedCopiesDeliverOnlyIntactRecords) {
    REQUIRE_CAPTURES();
    const char* file = "mi-core_CMCC.mi2log";
    Bytes intact = ReadAll(rt::test::CapturesDir() + "/" + file);
    Replay good = ReplayBytes(intact);
    std::set<std::pair<uint16_t, Bytes>> allowed;
    for (const auto& [code, r] : good.records) allowed.emplace(code, r);

    // Frames end with 0x7E; keep each with its flag.
    std::vector<Bytes> frames;
    Bytes current;
    for (uint8_t b : intact) {
        current.push_back(b);
        if (b == 0x7E) {
            frames.push_back(current);
            current.clear();
        }
    }
    std::mt19937 rng(20240611);
    auto join = [](const std::vector<Bytes>& parts) {
        Bytes out;
        for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
        return out;
    };
    std::vector<std::pair<const char*, Bytes>> copies;
    {
        std::vector<Bytes> shuffled = frames;
        std::shuffle(shuffled.begin(), shuffled.end(), rng);
        copies.emplace_back("shuffled", join(shuffled));
    }
    {
        std::vector<Bytes> cut = frames;
        for (Bytes& f : cut) {
            if (f.size() > 4 && rng() % 3 == 0) {
                size_t keep = rng() % (f.size() - 1);
                f.erase(f.begin() + static_cast<long>(keep), f.end() - 1);  // keeps the flag
            }
            if (f.size() > 4 && rng() % 7 == 0) f.pop_back();  // or loses the flag
        }
        copies.emplace_back("cut short", join(cut));
    }
    {
        Bytes flipped = intact;
        for (size_t i = 0; i < flipped.size() / 512; ++i)
            flipped[rng() % flipped.size()] ^= static_cast<uint8_t>(1u << (rng() % 8));
        copies.emplace_back("bit-flipped", flipped);
    }
    for (const auto& [what, bytes] : copies) {
        Replay replay = ReplayBytes(bytes);
        EXPECT_GT(replay.records.size(), 0u) << what;
        size_t foreign = 0;
        for (const auto& [code, r] : replay.records)
            if (allowed.count({code, r}) == 0) ++foreign;
        EXPECT_EQ(foreign, 0u) << what;
        if (std::string(what) != "shuffled") {
            EXPECT_GT(replay.stats.log_packets, 0u);
        }
    }
}

}  // namespace
}  // namespace dmux
