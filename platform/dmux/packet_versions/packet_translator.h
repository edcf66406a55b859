// Packet versions: before a log record reaches the daemon, its version is
// checked against the layout the daemon reads (log_layouts.h): a record of
// that layout goes as it is; a known other version is rewritten into it
// (the fields the daemon reads, at its offsets, in a record of its size and
// version byte); anything else is dropped. A record whose lengths or
// counts do not add up is dropped too, so a delivered record always holds
// what an intact packet held.
//
// Values are carried whole: the serving cell (0xB0C2) and its measurements
// (0xB179) are delivered in their older layouts with 16-bit EARFCNs, plus
// the EARFCN again as a 32-bit word at the end, so a band-66 or band-71
// EARFCN of today's versions reaches the report whole. Every version of
// those two codes is therefore translated. Two cases still do not fit:
//   - a 64-bit RLC byte counter (0xB087 v1/s3) above 2^32 - 1 saturates at
//     0xFFFFFFFF, the daemon's counters being 32 bits;
//   - a 0xB179 measurement of a secondary serving cell (carrier
//     aggregation) is dropped, so the snapshot keeps the primary cell.
//
// Codes without a version byte (WCDMA 0x4xxx, NAS 0x71xx) and codes this
// library has no table for go as they are.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace dmux {

// A version as counted and shown: the version byte, and for the RLC codes
// the subpacket's version too. kNone where the packet has none.
struct PacketVersion {
    static constexpr uint16_t kNone = 0xFFFF;
    uint16_t version = kNone;
    uint16_t subpacket = kNone;
    bool operator==(const PacketVersion&) const = default;
    auto operator<=>(const PacketVersion&) const = default;
};

enum class VersionVerdict : uint8_t {
    kAsIs,        // the daemon's layout (or a code without versions)
    kTranslated,  // rewritten into the daemon's layout
    kDropped,     // see DropReason
};

// Why a record was not delivered.
enum class DropReason : uint8_t {
    kNone,
    kSecondaryCell,      // 0xB179 of a carrier-aggregation secondary cell
    kUnknownVersion,     // a version (or subpacket) whose layout is not known
    kShort,              // too short for its version, or counts past its end
    kOtherSubscription,  // wrapped for a subscription other than the one kept
};
inline constexpr size_t kDropReasons = 5;
// "secondary_cell", "unknown_version", "short", "other_subscription"; "" for kNone.
const char* DropReasonName(DropReason reason);

struct Translation {
    VersionVerdict verdict = VersionVerdict::kDropped;
    DropReason reason = DropReason::kNone;
    PacketVersion version;
    // What to deliver: the input itself or the translator's own buffer,
    // valid until the next call. Empty when dropped.
    std::span<const uint8_t> record;
};

// How one version of one code is handled, for the table in the docs and
// the tests. The translator's switch is the behaviour; this list names it.
struct KnownVersion {
    uint16_t code;
    PacketVersion version;
    VersionVerdict verdict;
};
std::span<const KnownVersion> KnownVersions();

// The version of a record as counted: byte 12 of the codes that have one,
// and the subpacket's version of the RLC codes; kNone where absent.
PacketVersion VersionOf(uint16_t code, std::span<const uint8_t> record);

class PacketTranslator {
  public:
    PacketTranslator();
    Translation Translate(uint16_t code, std::span<const uint8_t> record);

  private:
    std::vector<uint8_t> out_;
};

}  // namespace dmux
