#include "platform/dmux/packet_versions/packet_translator.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/common/code_name.h"
#include "platform/dmux/log_layouts.h"

namespace dmux {

namespace {

using namespace log_layout;

// The largest translated record: 0xB087 with 255 entries.
constexpr size_t kMaxOutput = RlcDlStats::kHeaderSize + 255 * RlcDlStats::kEntrySize;

// One field moved from a source layout to the daemon's: offsets and widths
// in bytes. A wider unsigned source saturates at the target's maximum.
struct Move {
    uint16_t from;
    uint8_t from_width;
    uint16_t to;
    uint8_t to_width;
};

uint64_t Load(const uint8_t* p, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) value |= static_cast<uint64_t>(p[i]) << (8 * i);
    return value;
}

void Store(uint8_t* p, size_t width, uint64_t value) {
    for (size_t i = 0; i < width; ++i) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

// Bytes of the source a move list reads.
template <size_t N>
constexpr size_t SourceExtent(const Move (&moves)[N]) {
    size_t end = 0;
    for (const Move& m : moves) end = std::max<size_t>(end, m.from + m.from_width);
    return end;
}

void ApplyMoves(std::span<const Move> moves, const uint8_t* from, uint8_t* to) {
    for (const Move& m : moves) {
        uint64_t value = Load(from + m.from, m.from_width);
        if (m.to_width < 8) {
            uint64_t max = (uint64_t{1} << (8 * m.to_width)) - 1;
            if (m.from_width > m.to_width && value > max) value = max;
        }
        Store(to + m.to, m.to_width, value);
    }
}

template <class T>
constexpr uint16_t At(rt::Field<T> f) {
    return static_cast<uint16_t>(f.offset);
}
template <class T>
constexpr uint8_t Width(rt::Field<T>) {
    return sizeof(T);
}
template <class T>
constexpr Move To(uint16_t from, uint8_t from_width, rt::Field<T> to) {
    return {from, from_width, At(to), Width(to)};
}

// A field an older version holds where the delivered layout has it.
template <class T>
constexpr Move Same(rt::Field<T> f) {
    return {At(f), Width(f), At(f), Width(f)};
}
// A delivered 16-bit field copied, widened, into its whole-value word.
template <class T, class U>
constexpr Move Widen(rt::Field<T> cut, rt::Field<U> whole) {
    return {At(cut), Width(cut), At(whole), Width(whole)};
}

// 0xB0C2 version 2 is the delivered layout's head: its fields stay where
// they are, and its 16-bit EARFCNs widen into the words after it.
constexpr Move kServingCellV2[] = {
    Same(LteServingCell::kPci),
    Same(LteServingCell::kDlEarfcnCut),
    Same(LteServingCell::kUlEarfcnCut),
    Widen(LteServingCell::kDlEarfcnCut, LteServingCell::kDlEarfcn),
    Widen(LteServingCell::kUlEarfcnCut, LteServingCell::kUlEarfcn),
    Same(LteServingCell::kDlBandwidthRb),
    Same(LteServingCell::kUlBandwidthRb),
    Same(LteServingCell::kCellId),
    Same(LteServingCell::kTac),
    Same(LteServingCell::kBand),
    Same(LteServingCell::kMcc),
    Same(LteServingCell::kMncDigits),
    Same(LteServingCell::kMnc),
    Same(LteServingCell::kAllowedAccess),
};
static_assert(SourceExtent(kServingCellV2) == 37);

// 0xB0C2 version 3 (41 bytes): 32-bit EARFCNs at 15 and 19, so every field
// after them sits 4 bytes later than in version 2. The EARFCNs go whole
// into the words at the end, and cut to 65535 into the 16-bit fields.
constexpr uint8_t kServingCellWide = 3;
constexpr Move kServingCellV3[] = {
    To(13, 2, LteServingCell::kPci),           To(15, 4, LteServingCell::kDlEarfcnCut),
    To(19, 4, LteServingCell::kUlEarfcnCut),   To(15, 4, LteServingCell::kDlEarfcn),
    To(19, 4, LteServingCell::kUlEarfcn),      To(23, 1, LteServingCell::kDlBandwidthRb),
    To(24, 1, LteServingCell::kUlBandwidthRb), To(25, 4, LteServingCell::kCellId),
    To(29, 2, LteServingCell::kTac),           To(31, 4, LteServingCell::kBand),
    To(35, 2, LteServingCell::kMcc),           To(37, 1, LteServingCell::kMncDigits),
    To(38, 2, LteServingCell::kMnc),           To(40, 1, LteServingCell::kAllowedAccess),
};
static_assert(SourceExtent(kServingCellV3) == 41);

// 0xB179 in the single-carrier layout: the delivered fields at their own
// offsets; the EARFCN widens into the word at the end. Its neighbour lists
// are not carried over.
constexpr Move kServingMeasSingleCarrier[] = {
    Same(LteServingMeasurements::kEarfcnCut),
    Widen(LteServingMeasurements::kEarfcnCut, LteServingMeasurements::kEarfcn),
    Same(LteServingMeasurements::kPci),
    Same(LteServingMeasurements::kSubframe),
    Same(LteServingMeasurements::kRawRsrp),
    Same(LteServingMeasurements::kRawRsrpDuplicate),
    Same(LteServingMeasurements::kRawRsrq),
    Same(LteServingMeasurements::kRawRsrqDuplicate),
};

// 0xB179 version 4: a 40-byte head for one serving cell (its index in the
// low 3 bits of byte 16; 0 is the primary), a 32-bit EARFCN at 20, then the
// neighbour and detected-cell lists whose counts sit at 36 and 37.
struct ServingMeasV4 {
    static constexpr uint8_t kVersion = 4;
    static constexpr size_t kHeadSize = 40;
    static constexpr rt::Bits<uint8_t> kServingCellIndex{{16}, 0, 3};
    static constexpr rt::Field<uint8_t> kNeighbourCount{36};
    static constexpr rt::Field<uint8_t> kDetectedCount{37};
    static constexpr size_t kNeighbourSize = 12;
    static constexpr size_t kDetectedSize = 16;
};
constexpr Move kServingMeasV4[] = {
    To(20, 4, LteServingMeasurements::kEarfcnCut),
    To(20, 4, LteServingMeasurements::kEarfcn),
    To(24, 2, LteServingMeasurements::kPci),
    To(26, 2, LteServingMeasurements::kSubframe),
    To(28, 2, LteServingMeasurements::kRawRsrp),
    To(30, 2, LteServingMeasurements::kRawRsrpDuplicate),
    To(32, 2, LteServingMeasurements::kRawRsrq),
    To(34, 2, LteServingMeasurements::kRawRsrqDuplicate),
};
static_assert(SourceExtent(kServingMeasV4) <= ServingMeasV4::kHeadSize);

// 0xB17F version 4 has version 3's layout (as public decoders read it):
// only its version byte changes. Version 5 has a 32-bit EARFCN at 16, so
// the PCI and the measurement words sit 2 and 4 bytes later.
constexpr uint8_t kServingRssiSameLayout = 4;
constexpr Move kServingRssiV4[] = {
    Same(LteServingRssi::kEarfcn),       Same(LteServingRssi::kPci),
    Same(LteServingRssi::kMeasuredRsrp), Same(LteServingRssi::kAverageRsrp),
    Same(LteServingRssi::kRsrq),         Same(LteServingRssi::kRssiWord),
};
constexpr uint8_t kServingRssiWide = 5;
constexpr Move kServingRssiV5[] = {
    To(16, 4, LteServingRssi::kEarfcn),       To(20, 2, LteServingRssi::kPci),
    To(24, 4, LteServingRssi::kMeasuredRsrp), To(28, 4, LteServingRssi::kAverageRsrp),
    To(32, 4, LteServingRssi::kRsrq),         To(36, 4, LteServingRssi::kRssiWord),
};

// 0xB087 subpacket version 3: 262-byte entries whose byte counters are 64
// bits wide. Entry offsets.
constexpr Move kRlcDlEntryV3[] = {
    To(0, 1, RlcDlStats::kCfgIdx),
    To(1, 1, RlcDlStats::kMode),
    To(2, 4, RlcDlStats::kNumRst),
    To(6, 4, RlcDlStats::kNumDataPdu),
    To(10, 8, RlcDlStats::kDataPduBytes),
    To(18, 4, RlcDlStats::kNumStatusRxed),
    To(22, 8, RlcDlStats::kStatusRxedBytes),
    To(30, 4, RlcDlStats::kNumInvalidPdu),
    To(34, 8, RlcDlStats::kInvalidPduBytes),
    To(42, 4, RlcDlStats::kNumRetxPdu),
    To(46, 8, RlcDlStats::kRetxPduBytes),
    To(54, 4, RlcDlStats::kNumDupPdu),
    To(58, 8, RlcDlStats::kDupPduBytes),
    To(66, 4, RlcDlStats::kNumDroppedPdu),
    To(70, 8, RlcDlStats::kDroppedPduBytes),
    To(78, 4, RlcDlStats::kNumDroppedPduFc),
    To(82, 8, RlcDlStats::kDroppedPduFcBytes),
    To(90, 4, RlcDlStats::kNumSdu),
    To(94, 8, RlcDlStats::kSduBytes),
    To(102, 4, RlcDlStats::kNumNonseqSdu),
    To(106, 4, RlcDlStats::kNumCtrlPdu),
    To(110, 4, RlcDlStats::kNumCompNack),
    To(114, 4, RlcDlStats::kNumSegmNack),
    To(118, 4, RlcDlStats::kNumTReordExp),
};
// 0xB087 subpacket version 3: entries of 262 bytes with 64-bit byte counters.
constexpr uint8_t kRlcDlSubpacketWideCounters = 3;
constexpr size_t kRlcDlEntryV3Size = 262;
// The counters since the last reset, same order as in version 2: pairs of
// (count, bytes) for eight kinds, then five counts. In version 3 they
// start at 134 and the byte counters are 64 bits.
constexpr size_t kRlcDlResetV3Start = 134;

void TranslateRlcDlEntryV3(const uint8_t* from, uint8_t* to) {
    ApplyMoves(kRlcDlEntryV3, from, to);
    size_t src = kRlcDlResetV3Start;
    size_t dst = RlcDlStats::kResetCountersStart;
    for (size_t k = 0; k < RlcDlStats::kResetCounters; ++k) {
        // Words 1, 3, ... 15 of the eight (count, bytes) pairs are bytes.
        size_t width = (k < 16 && k % 2 == 1) ? 8 : 4;
        uint64_t value = Load(from + src, width);
        Store(to + dst, 4, std::min<uint64_t>(value, 0xFFFFFFFFu));
        src += width;
        dst += 4;
    }
}

uint8_t ByteAt(std::span<const uint8_t> r, size_t offset) {
    return offset < r.size() ? r[offset] : 0;
}
uint16_t U16At(std::span<const uint8_t> r, size_t offset) {
    return offset + 2 <= r.size() ? static_cast<uint16_t>(Load(r.data() + offset, 2)) : 0;
}

constexpr KnownVersion kKnownVersions[] = {
    {0xB0C2, {LteServingCell::kVersionValue, PacketVersion::kNone}, VersionVerdict::kTranslated},
    {0xB0C2, {kServingCellWide, PacketVersion::kNone}, VersionVerdict::kTranslated},
    {0xB0EE, {2, PacketVersion::kNone}, VersionVerdict::kAsIs},
    {0xB179,
     {LteServingMeasurements::kVersionValue, PacketVersion::kNone},
     VersionVerdict::kTranslated},
    {0xB179, {ServingMeasV4::kVersion, PacketVersion::kNone}, VersionVerdict::kTranslated},
    {0xB17F, {LteServingRssi::kVersionValue, PacketVersion::kNone}, VersionVerdict::kAsIs},
    {0xB17F, {kServingRssiSameLayout, PacketVersion::kNone}, VersionVerdict::kTranslated},
    {0xB17F, {kServingRssiWide, PacketVersion::kNone}, VersionVerdict::kTranslated},
    {0xB081, {1, 1}, VersionVerdict::kAsIs},
    {0xB091, {1, 1}, VersionVerdict::kAsIs},
    // An NB-IoT modem's uplink configuration: no public layout found.
    {0xB091, {1, 2}, VersionVerdict::kDropped},
    {0xB087, {1, 2}, VersionVerdict::kAsIs},
    {0xB087, {1, 3}, VersionVerdict::kTranslated},
    {0xB087, {0x31, PacketVersion::kNone}, VersionVerdict::kDropped},
    {0xB097, {1, 1}, VersionVerdict::kAsIs},
};

bool HasVersions(uint16_t code) {
    switch (code) {
        case LteServingCell::kCode:
        case LteUeIdentity::kCode:
        case LteServingMeasurements::kCode:
        case LteServingRssi::kCode:
        case RlcConfig::kDlCode:
        case RlcConfig::kUlCode:
        case RlcDlStats::kCode:
        case RlcUlStats::kCode:
            return true;
        default:
            return false;
    }
}

bool IsRlc(uint16_t code) {
    return code == RlcConfig::kDlCode || code == RlcConfig::kUlCode || code == RlcDlStats::kCode ||
           code == RlcUlStats::kCode;
}

constexpr rt::CodeName<DropReason> kDropReasonNames[] = {
    {DropReason::kSecondaryCell, "secondary_cell"},
    {DropReason::kUnknownVersion, "unknown_version"},
    {DropReason::kShort, "short"},
    {DropReason::kOtherSubscription, "other_subscription"},
};
static_assert(std::size(kDropReasonNames) == kDropReasons - 1, "a name for each reason but kNone");

}  // namespace

const char* DropReasonName(DropReason reason) {
    const char* name = rt::NameOf(kDropReasonNames, reason);
    return name != nullptr ? name : "";
}

std::span<const KnownVersion> KnownVersions() {
    return kKnownVersions;
}

PacketVersion VersionOf(uint16_t code, std::span<const uint8_t> record) {
    PacketVersion v;
    if (!HasVersions(code) || record.size() <= kVersion.offset) return v;
    v.version = record[kVersion.offset];
    if (IsRlc(code) && v.version == kRlcVersionValue && record.size() > kSubpacketVersion.offset)
        v.subpacket = record[kSubpacketVersion.offset];
    return v;
}

PacketTranslator::PacketTranslator() : out_(kMaxOutput) {}

Translation PacketTranslator::Translate(uint16_t code, std::span<const uint8_t> record) {
    // Codes without a version byte, most packets, go straight through.
    if (!HasVersions(code))
        return Translation{VersionVerdict::kAsIs, DropReason::kNone, PacketVersion{}, record};
    // Each outcome is built whole where it is returned, from values rather
    // than references to locals: a local filled in piece by piece and read
    // back whole stalls the store-to-load forwarding on every packet.
    const PacketVersion packet_version = VersionOf(code, record);
    auto as_is = [record, packet_version] {
        return Translation{VersionVerdict::kAsIs, DropReason::kNone, packet_version, record};
    };
    auto drop = [packet_version](DropReason reason) {
        return Translation{VersionVerdict::kDropped, reason, packet_version, {}};
    };
    // A fixed-size target: zeroed, header copied, length and version set,
    // the fields moved.
    auto translate = [this, record, packet_version](size_t size, uint8_t version,
                                                    std::span<const Move> moves) {
        std::memset(out_.data(), 0, size);
        std::memcpy(out_.data(), record.data(), kLogHeaderSize);
        Store(out_.data() + kRecordLength.offset, 2, size);
        out_[kVersion.offset] = version;
        ApplyMoves(moves, record.data(), out_.data());
        return Translation{VersionVerdict::kTranslated, DropReason::kNone, packet_version,
                           std::span<const uint8_t>(out_.data(), size)};
    };

    if (record.size() <= kVersion.offset) return drop(DropReason::kShort);
    const uint8_t version = record[kVersion.offset];
    // A record of a known version must hold every byte read from it.
    auto sized = [&](size_t need, auto deliver) {
        return record.size() >= need ? deliver() : drop(DropReason::kShort);
    };

    // Translates into a fixed-size target when the record holds every byte
    // the moves read.
    auto translate_whole = [&]<size_t N>(size_t size, uint8_t to_version, const Move(&moves)[N]) {
        return sized(SourceExtent(moves), [&] { return translate(size, to_version, moves); });
    };

    switch (code) {
        case LteServingCell::kCode:
            if (version == LteServingCell::kVersionValue)
                return translate_whole(LteServingCell::kSize, version, kServingCellV2);
            if (version == kServingCellWide)
                return translate_whole(LteServingCell::kSize, LteServingCell::kVersionValue,
                                       kServingCellV3);
            return drop(DropReason::kUnknownVersion);

        case LteUeIdentity::kCode:
            if (version != LteUeIdentity::kVersionValue) return drop(DropReason::kUnknownVersion);
            return sized(LteUeIdentity::kSize, as_is);

        case LteServingMeasurements::kCode: {
            using M = LteServingMeasurements;
            if (version == M::kVersionValue)
                return translate_whole(M::kSize, version, kServingMeasSingleCarrier);
            if (version != ServingMeasV4::kVersion) return drop(DropReason::kUnknownVersion);
            using V4 = ServingMeasV4;
            if (record.size() < V4::kHeadSize) return drop(DropReason::kShort);
            const rt::FieldReader head(record);
            // The neighbour and detected-cell lists must fit the record.
            size_t lists = V4::kNeighbourSize * head.Get(V4::kNeighbourCount) +
                           V4::kDetectedSize * head.Get(V4::kDetectedCount);
            if (V4::kHeadSize + lists > record.size()) return drop(DropReason::kShort);
            // A secondary cell's measurement would overwrite the primary's.
            const auto& index = V4::kServingCellIndex;
            if (index.Of(head.Get(index.field)) != 0) return drop(DropReason::kSecondaryCell);
            return translate(M::kSize, M::kVersionValue, kServingMeasV4);
        }

        case LteServingRssi::kCode:
            if (version == LteServingRssi::kVersionValue)
                return sized(LteServingRssi::kSize, as_is);
            if (version == kServingRssiSameLayout)
                return translate_whole(LteServingRssi::kSize, LteServingRssi::kVersionValue,
                                       kServingRssiV4);
            if (version == kServingRssiWide)
                return translate_whole(LteServingRssi::kSize, LteServingRssi::kVersionValue,
                                       kServingRssiV5);
            return drop(DropReason::kUnknownVersion);

        default:
            break;
    }

    // RLC codes: version 1 with one subpacket whose id is the code's own.
    uint8_t sub_id = ByteAt(record, kSubpacketId.offset);
    uint8_t sub_version = ByteAt(record, kSubpacketVersion.offset);
    if (version != kRlcVersionValue) return drop(DropReason::kUnknownVersion);
    if (record.size() <= kSubpacketVersion.offset) return drop(DropReason::kShort);
    if (ByteAt(record, kSubpacketCount.offset) != 1) return drop(DropReason::kUnknownVersion);
    size_t sub_size = U16At(record, kSubpacketSize.offset);
    bool sub_fits =
        record.size() >= kSubpacketStart + 4 && kSubpacketStart + sub_size <= record.size();

    // Whether the subpacket's lengths and counts add up.
    auto fits = [&](bool whole) { return whole ? as_is() : drop(DropReason::kShort); };
    switch (code) {
        case RlcConfig::kDlCode:
        case RlcConfig::kUlCode: {
            bool dl = code == RlcConfig::kDlCode;
            uint8_t want_id = dl ? RlcConfig::kDlSubpacketId : RlcConfig::kUlSubpacketId;
            if (sub_id != want_id || sub_version != RlcConfig::kSubpacketVersionValue)
                return drop(DropReason::kUnknownVersion);
            if (!sub_fits || record.size() < RlcConfig::kHeaderSize)
                return drop(DropReason::kShort);
            // The bearer list position the daemon computes must lie inside.
            return fits(RlcConfig::RbCountOffset(record[RlcConfig::kSkipRecordCount.offset]) <
                        record.size());
        }
        case RlcUlStats::kCode: {
            if (sub_id != RlcUlStats::kSubpacketIdValue ||
                sub_version != RlcUlStats::kSubpacketVersionValue)
                return drop(DropReason::kUnknownVersion);
            if (!sub_fits || record.size() < RlcUlStats::kHeaderSize)
                return drop(DropReason::kShort);
            size_t need = RlcUlStats::kHeaderSize +
                          RlcUlStats::kEntrySize * record[RlcUlStats::kCount.offset];
            return fits(need <= kSubpacketStart + sub_size);
        }
        case RlcDlStats::kCode: {
            if (sub_id != RlcDlStats::kSubpacketIdValue ||
                (sub_version != RlcDlStats::kSubpacketVersionValue &&
                 sub_version != kRlcDlSubpacketWideCounters))
                return drop(DropReason::kUnknownVersion);
            if (!sub_fits || record.size() < RlcDlStats::kHeaderSize)
                return drop(DropReason::kShort);
            size_t count = record[RlcDlStats::kCount.offset];
            size_t sub_end = kSubpacketStart + sub_size;
            if (sub_version == RlcDlStats::kSubpacketVersionValue)
                return fits(RlcDlStats::kHeaderSize + RlcDlStats::kEntrySize * count <= sub_end);
            if (RlcDlStats::kHeaderSize + kRlcDlEntryV3Size * count > sub_end)
                return drop(DropReason::kShort);
            size_t size = RlcDlStats::kHeaderSize + RlcDlStats::kEntrySize * count;
            std::memset(out_.data(), 0, size);
            std::memcpy(out_.data(), record.data(), RlcDlStats::kHeaderSize);
            Store(out_.data() + kRecordLength.offset, 2, size);
            out_[kSubpacketVersion.offset] = RlcDlStats::kSubpacketVersionValue;
            Store(out_.data() + kSubpacketSize.offset, 2, size - kSubpacketStart);
            for (size_t i = 0; i < count; ++i)
                TranslateRlcDlEntryV3(
                    record.data() + RlcDlStats::kHeaderSize + kRlcDlEntryV3Size * i,
                    out_.data() + RlcDlStats::kHeaderSize + RlcDlStats::kEntrySize * i);
            return Translation{VersionVerdict::kTranslated, DropReason::kNone, packet_version,
                               std::span<const uint8_t>(out_.data(), size)};
        }
        default:
            return drop(DropReason::kUnknownVersion);
    }
}

}  // namespace dmux
