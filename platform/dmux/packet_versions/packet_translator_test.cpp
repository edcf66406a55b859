// The translator on packets built here at their own offsets: each known
// version's fields land at the daemon's offsets whole, and packets whose
// lengths or counts do not add up are dropped with their reason.
#include "platform/dmux/packet_versions/packet_translator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/common/byte_layout.h"
#include "platform/dmux/log_layouts.h"

namespace dmux {
namespace {

using Bytes = std::vector<uint8_t>;
namespace t = log_layout;

void Put(Bytes* b, size_t at, size_t width, uint64_t value) {
    for (size_t i = 0; i < width; ++i) (*b)[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

Bytes Record(uint16_t code, size_t size, uint8_t version) {
    Bytes b(size, 0);
    Put(&b, 0, 2, size);
    Put(&b, 2, 2, code);
    Put(&b, 4, 8, 0x0123456789ABCDEFull);
    if (size > 12) b[12] = version;  // a header-only record has no version byte
    return b;
}

template <class T>
T Get(std::span<const uint8_t> r, rt::Field<T> f) {
    return rt::FieldReader(r).Get(f);
}

Bytes ServingCellV3(uint32_t dl, uint32_t ul) {
    Bytes b = Record(0xB0C2, 41, 3);
    Put(&b, 13, 2, 337);
    Put(&b, 15, 4, dl);
    Put(&b, 19, 4, ul);
    Put(&b, 31, 4, 66);
    return b;
}

// As the qmdl example capture holds it: 16-bit EARFCNs, the rest 4 bytes
// earlier than in version 3.
Bytes ServingCellV2() {
    Bytes b = Record(0xB0C2, 37, 2);
    Put(&b, 13, 2, 87);
    Put(&b, 15, 2, 5780);
    Put(&b, 17, 2, 23780);
    b[19] = 50;
    b[20] = 25;
    Put(&b, 21, 4, 0x086D0B0F);
    Put(&b, 25, 2, 0x8740);
    Put(&b, 27, 4, 17);
    Put(&b, 31, 2, 310);
    b[33] = 3;
    Put(&b, 34, 2, 410);
    b[36] = 1;
    return b;
}

// Version 2 keeps its layout and gains its EARFCNs, whole, at the end.
TEST(PacketTranslatorTest, ServingCellV2GainsWholeEarfcns) {
    PacketTranslator translator;
    Bytes in = ServingCellV2();
    Translation out = translator.Translate(0xB0C2, in);
    ASSERT_EQ(out.verdict, VersionVerdict::kTranslated);
    EXPECT_EQ(out.version.version, 2);
    ASSERT_EQ(out.record.size(), 45u);
    EXPECT_EQ(Get(out.record, t::kRecordLength), 45);
    // Everything after the length word is the packet's own (the report's
    // tests read the named fields of this layout at its offsets).
    EXPECT_TRUE(std::equal(in.begin() + 2, in.end(), out.record.begin() + 2));
    EXPECT_EQ(Get(out.record, t::LteServingCell::kDlEarfcn), 5780u);
    EXPECT_EQ(Get(out.record, t::LteServingCell::kUlEarfcn), 23780u);

    // Version 3 with the same values (32-bit EARFCNs, everything after them
    // 4 bytes later) is delivered byte for byte as version 2 is: each of
    // its fields lands where version 2 has it.
    Bytes v3 = Record(0xB0C2, 41, 3);
    Put(&v3, 13, 2, 87);
    Put(&v3, 15, 4, 5780);
    Put(&v3, 19, 4, 23780);
    std::copy(in.begin() + 19, in.end(), v3.begin() + 23);
    Bytes v2_out(out.record.begin(), out.record.end());
    Translation wide = translator.Translate(0xB0C2, v3);
    ASSERT_EQ(wide.verdict, VersionVerdict::kTranslated);
    EXPECT_TRUE(
        std::equal(v2_out.begin() + 2, v2_out.end(), wide.record.begin() + 2, wide.record.end()));
}

Bytes MeasV4(uint8_t cell_index, uint32_t earfcn, uint8_t neighbours, uint8_t detected,
             size_t size) {
    Bytes b = Record(0xB179, size, 4);
    b[16] = cell_index;
    Put(&b, 20, 4, earfcn);
    Put(&b, 24, 2, 405);
    Put(&b, 26, 2, 7);
    Put(&b, 28, 2, 1336);
    Put(&b, 32, 2, 294);
    b[36] = neighbours;
    b[37] = detected;
    return b;
}

// 0xB17F with the RSSI word (raw value in bits 10 to 23) where the version
// puts it: @32 in versions 3 and 4, @36 in version 5.
Bytes Rssi(uint8_t version, uint32_t earfcn, uint32_t raw) {
    bool v5 = version == 5;
    Bytes b = Record(0xB17F, v5 ? 52 : 48, version);
    Put(&b, 16, v5 ? 4 : 2, earfcn);
    Put(&b, v5 ? 20 : 18, 2, 405);
    Put(&b, v5 ? 36 : 32, 4, raw << 10 | 0x127);
    return b;
}

// EARFCNs above 65535 (bands 66 and 71) arrive whole, whichever version
// carries them, and cut to 65535 in the older layouts' 16-bit fields.
TEST(PacketTranslatorTest, EarfcnsArriveWhole) {
    struct Case {
        const char* what;
        uint16_t code;
        Bytes record;
        VersionVerdict want;
        uint32_t dl, ul = 0;  // ul unused for one-EARFCN codes
    };
    const auto kTranslated = VersionVerdict::kTranslated;
    Bytes single_carrier = Record(0xB179, 40, 2);
    Put(&single_carrier, 16, 2, 65535);
    Put(&single_carrier, 18, 2, 405);
    Put(&single_carrier, 22, 2, 1336);
    Put(&single_carrier, 26, 2, 294);
    const Case cases[] = {
        {"band 66 serving cell", 0xB0C2, ServingCellV3(66786, 131986), kTranslated, 66786, 131986},
        {"band 71 serving cell", 0xB0C2, ServingCellV3(68661, 133197), kTranslated, 68661, 133197},
        {"the 16-bit top", 0xB0C2, ServingCellV3(65535, 65536), kTranslated, 65535, 65536},
        {"band 66 measurement", 0xB179, MeasV4(0, 66786, 0, 0, 40), kTranslated, 66786},
        {"single-carrier measurement", 0xB179, single_carrier, kTranslated, 65535},
        {"band 71 RSSI v5", 0xB17F, Rssi(5, 68661, 672), kTranslated, 65535},
        {"RSSI v4", 0xB17F, Rssi(4, 5780, 672), kTranslated, 5780},
        {"RSSI v3", 0xB17F, Rssi(3, 5780, 672), VersionVerdict::kAsIs, 5780},
    };
    PacketTranslator translator;
    for (const Case& c : cases) {
        Translation out = translator.Translate(c.code, c.record);
        ASSERT_EQ(out.verdict, c.want) << c.what;
        EXPECT_EQ(Get(out.record, t::kVersion), c.code == 0xB17F ? 3 : 2) << c.what;
        auto cut = [](uint32_t earfcn) { return std::min<uint32_t>(earfcn, 65535); };
        switch (c.code) {
            case 0xB0C2:
                EXPECT_EQ(Get(out.record, t::LteServingCell::kDlEarfcn), c.dl) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingCell::kUlEarfcn), c.ul) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingCell::kDlEarfcnCut), cut(c.dl)) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingCell::kUlEarfcnCut), cut(c.ul)) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingCell::kPci), 337) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingCell::kBand), 66u) << c.what;
                break;
            case 0xB179:
                EXPECT_EQ(Get(out.record, t::LteServingMeasurements::kEarfcn), c.dl) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingMeasurements::kEarfcnCut), cut(c.dl))
                    << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingMeasurements::kPci), 405) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingMeasurements::kRawRsrp), 1336) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingMeasurements::kRawRsrq), 294) << c.what;
                break;
            default:
                EXPECT_EQ(Get(out.record, t::LteServingRssi::kEarfcn), c.dl) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingRssi::kPci), 405) << c.what;
                EXPECT_EQ(Get(out.record, t::LteServingRssi::kRssiWord) >> 10 & 0x3FFF, 672u)
                    << c.what;
        }
    }
}

Bytes RlcDlStatsV3(uint8_t count, size_t sub_size, size_t record_size) {
    Bytes b = Record(0xB087, record_size, 1);
    b[13] = 1;
    b[16] = 0x42;
    b[17] = 3;
    Put(&b, 18, 2, sub_size);
    b[20] = count;
    return b;
}

// Verdicts, and why a packet did not reach the daemon.
TEST(PacketTranslatorTest, VerdictTable) {
    struct Case {
        const char* what;
        uint16_t code;
        Bytes record;
        VersionVerdict want;
        DropReason why = DropReason::kNone;
    };
    Bytes short_v3 = ServingCellV3(1, 1);
    short_v3.resize(40);
    Bytes long_v3 = ServingCellV3(1, 1);
    long_v3.push_back(0);
    Bytes count_past_subpacket = RlcDlStatsV3(3, 13 + 262 * 2, 16 + 13 + 262 * 3);
    Bytes subpacket_past_record = RlcDlStatsV3(1, 13 + 262 + 100, 16 + 13 + 262);
    Bytes two_subpackets = RlcDlStatsV3(0, 13, 29);
    two_subpackets[13] = 2;
    Bytes wrong_id = RlcDlStatsV3(0, 13, 29);
    wrong_id[16] = 0x47;
    Bytes pixel_layout = Record(0xB087, 596, 0x31);
    Bytes ul = Record(0xB097, 25 + 126, 1);
    ul[13] = 1;
    ul[16] = 0x47;
    ul[17] = 1;
    Put(&ul, 18, 2, 9 + 126);
    ul[20] = 1;
    Bytes ul_count_too_big = ul;
    ul_count_too_big[20] = 2;
    const auto kDropped = VersionVerdict::kDropped;
    const Case cases[] = {
        {"v2 serving cell cut short", 0xB0C2, Record(0xB0C2, 36, 2), kDropped, DropReason::kShort},
        {"v3 serving cell one byte short", 0xB0C2, short_v3, kDropped, DropReason::kShort},
        {"v3 serving cell one byte long", 0xB0C2, long_v3, VersionVerdict::kTranslated},
        {"unknown serving cell version", 0xB0C2, Record(0xB0C2, 41, 9), kDropped,
         DropReason::kUnknownVersion},
        {"header only", 0xB0C2, Record(0xB0C2, 12, 0), kDropped, DropReason::kShort},
        {"secondary cell", 0xB179, MeasV4(1, 1975, 0, 0, 40), kDropped, DropReason::kSecondaryCell},
        {"neighbours past the end", 0xB179, MeasV4(0, 1975, 2, 0, 52), kDropped,
         DropReason::kShort},
        {"neighbours and detected fit", 0xB179, MeasV4(0, 1975, 1, 1, 68),
         VersionVerdict::kTranslated},
        {"v4 measurement cut short", 0xB179, MeasV4(0, 1975, 0, 0, 39), kDropped,
         DropReason::kShort},
        {"unknown measurement version", 0xB179, Record(0xB179, 60, 5), kDropped,
         DropReason::kUnknownVersion},
        {"UE identity v2", 0xB0EE, Record(0xB0EE, 31, 2), VersionVerdict::kAsIs},
        {"UE identity v3", 0xB0EE, Record(0xB0EE, 31, 3), kDropped, DropReason::kUnknownVersion},
        {"RSSI v5 cut short", 0xB17F, Record(0xB17F, 39, 5), kDropped, DropReason::kShort},
        {"RSSI v4 cut short", 0xB17F, Record(0xB17F, 35, 4), kDropped, DropReason::kShort},
        {"RSSI v2", 0xB17F, Record(0xB17F, 52, 2), kDropped, DropReason::kUnknownVersion},
        {"WCDMA code without version", 0x4125, Record(0x4125, 13, 0x77), VersionVerdict::kAsIs},
        {"empty record of a code without version", 0x4110, Bytes{}, VersionVerdict::kAsIs},
        {"count past the subpacket", 0xB087, count_past_subpacket, kDropped, DropReason::kShort},
        {"subpacket past the record", 0xB087, subpacket_past_record, kDropped, DropReason::kShort},
        {"two subpackets", 0xB087, two_subpackets, kDropped, DropReason::kUnknownVersion},
        {"wrong subpacket id", 0xB087, wrong_id, kDropped, DropReason::kUnknownVersion},
        {"a layout without documentation", 0xB087, pixel_layout, kDropped,
         DropReason::kUnknownVersion},
        {"empty statistics", 0xB087, RlcDlStatsV3(0, 13, 29), VersionVerdict::kTranslated},
        {"uplink statistics", 0xB097, ul, VersionVerdict::kAsIs},
        {"uplink count past the end", 0xB097, ul_count_too_big, kDropped, DropReason::kShort},
    };
    PacketTranslator translator;
    for (const Case& c : cases) {
        Translation out = translator.Translate(c.code, c.record);
        EXPECT_EQ(out.verdict, c.want) << c.what;
        EXPECT_EQ(out.reason, c.why) << c.what;
        if (c.want == VersionVerdict::kDropped) {
            EXPECT_TRUE(out.record.empty()) << c.what;
        }
        if (c.want == VersionVerdict::kAsIs) {
            EXPECT_EQ(out.record.data(), c.record.data()) << c.what;
        }
    }
}

// 262-byte entries with 64-bit byte counters become 182-byte entries: the
// counts move, a byte counter above 2^32 - 1 saturates.
TEST(PacketTranslatorTest, RlcDlStatsV3EntriesBecomeV2) {
    const size_t n = 2;
    Bytes in = RlcDlStatsV3(n, 13 + 262 * n + 1, 16 + 13 + 262 * n + 1);
    for (size_t i = 0; i < n; ++i) {
        size_t e = 29 + 262 * i;
        in[e] = static_cast<uint8_t>(3 + i);    // cfg idx
        in[e + 1] = 1;                          // AM
        Put(&in, e + 2, 4, 11);                 // resets
        Put(&in, e + 6, 4, 1000 + i);           // data PDUs
        Put(&in, e + 10, 8, 0x1'0000'0005ull);  // data bytes, above 32 bits
        Put(&in, e + 18, 4, 22);                // status received
        Put(&in, e + 22, 8, 77);                // status bytes
        Put(&in, e + 42, 4, 33);                // retx PDUs
        Put(&in, e + 90, 4, 44);                // SDUs
        Put(&in, e + 118, 4, 55);               // t-reordering expiries
        Put(&in, e + 134, 4, 66);               // data PDUs since reset
        Put(&in, e + 138, 8, 99);               // their bytes
        Put(&in, e + 246, 4, 88);               // t-reordering since reset
    }
    PacketTranslator translator;
    Translation out = translator.Translate(0xB087, in);
    ASSERT_EQ(out.verdict, VersionVerdict::kTranslated);
    EXPECT_EQ(out.version.subpacket, 3);
    ASSERT_EQ(out.record.size(), 29 + 182 * n);
    EXPECT_EQ(Get(out.record, t::kRecordLength), 29 + 182 * n);
    EXPECT_EQ(Get(out.record, t::kSubpacketVersion), 2);
    EXPECT_EQ(Get(out.record, t::kSubpacketSize), 13 + 182 * n);
    EXPECT_EQ(Get(out.record, t::RlcDlStats::kCount), n);
    using E = t::RlcDlStats;
    for (size_t i = 0; i < n; ++i) {
        auto entry = out.record.subspan(29 + 182 * i, 182);
        EXPECT_EQ(Get(entry, E::kCfgIdx), 3 + i);
        EXPECT_EQ(Get(entry, E::kMode), 1);
        EXPECT_EQ(Get(entry, E::kNumRst), 11u);
        EXPECT_EQ(Get(entry, E::kNumDataPdu), 1000 + i);
        EXPECT_EQ(Get(entry, E::kDataPduBytes), 0xFFFFFFFFu);
        EXPECT_EQ(Get(entry, E::kNumStatusRxed), 22u);
        EXPECT_EQ(Get(entry, E::kStatusRxedBytes), 77u);
        EXPECT_EQ(Get(entry, E::kNumRetxPdu), 33u);
        EXPECT_EQ(Get(entry, E::kNumSdu), 44u);
        EXPECT_EQ(Get(entry, E::kNumTReordExp), 55u);
        EXPECT_EQ(Get(entry, rt::Field<uint32_t>{E::kResetCountersStart}), 66u);
        EXPECT_EQ(Get(entry, rt::Field<uint32_t>{E::kResetCountersStart + 4}), 99u);
        EXPECT_EQ(Get(entry, rt::Field<uint32_t>{E::kResetCountersStart + 80}), 88u);
    }
}

// Every prefix of a translatable packet is either dropped or, for the
// codes the library has no versions for, left alone; never read past.
TEST(PacketTranslatorTest, EveryPrefixIsSafe) {
    PacketTranslator translator;
    const std::pair<uint16_t, Bytes> packets[] = {
        {0xB0C2, ServingCellV3(5780, 23780)},
        {0xB179, MeasV4(0, 5780, 1, 1, 68)},
        {0xB087, RlcDlStatsV3(1, 13 + 262, 16 + 13 + 262)},
        {0xB17F, Record(0xB17F, 40, 5)},
    };
    for (const auto& [code, packet] : packets) {
        for (size_t n = 0; n < packet.size(); ++n) {
            Bytes prefix(packet.begin(), packet.begin() + static_cast<long>(n));
            EXPECT_EQ(translator.Translate(code, prefix).verdict, VersionVerdict::kDropped)
                << std::hex << code << " cut to " << std::dec << n;
        }
    }
}

}  // namespace
}  // namespace dmux
