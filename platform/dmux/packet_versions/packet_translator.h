// Packet versions: before a log record reaches the daemon, its version is
// checked against the layout the daemon reads (target_layouts.h). A record
// of that version goes as it is; a known other version is rewritten into
// the daemon's layout (the fields it reads, at its offsets, in a record of
// its size and version byte); anything else is dropped. A record whose
// lengths or counts do not add up is dropped too, so a delivered record
// always holds what an intact packet held.
//
// Where a value does not fit the daemon's field:
//   - an unsigned value wider than its target field saturates: an EARFCN
//     above 65535 becomes 0xFFFF (no EARFCN has that number), a 64-bit byte
//     counter above 2^32 - 1 becomes 0xFFFFFFFF;
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
    kDropped,     // unknown version, or lengths that do not add up
};

struct Translation {
    VersionVerdict verdict = VersionVerdict::kDropped;
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

class PacketTranslator {
  public:
    PacketTranslator();
    Translation Translate(uint16_t code, std::span<const uint8_t> record);

  private:
    std::vector<uint8_t> out_;
};

}  // namespace dmux
