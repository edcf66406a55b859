// Per log code and version: how many records went to the daemon as they
// came, how many were translated into its layout and how many were
// dropped, and why. Kept by the reader thread; copied out for the stats
// object.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/dmux/packet_versions/packet_translator.h"

namespace dmux {

struct VersionCount {
    uint16_t code = 0;
    PacketVersion version;
    uint64_t as_is = 0;
    uint64_t translated = 0;
    uint64_t dropped = 0;
    // Of the dropped, by DropReason (index kNone unused).
    uint64_t dropped_for[kDropReasons] = {};
    uint64_t DroppedFor(DropReason reason) const { return dropped_for[size_t(reason)]; }
};

class VersionCounts {
  public:
    void Count(uint16_t code, PacketVersion version, VersionVerdict verdict,
               DropReason reason = DropReason::kNone) {
        // Inline for the common case: the same code and version as last time.
        VersionCount* entry = last_ < entries_.size() && entries_[last_].code == code &&
                                      entries_[last_].version == version
                                  ? &entries_[last_]
                                  : Find(code, version);
        switch (verdict) {
            case VersionVerdict::kAsIs:
                ++entry->as_is;
                break;
            case VersionVerdict::kTranslated:
                ++entry->translated;
                break;
            case VersionVerdict::kDropped:
                ++entry->dropped;
                ++entry->dropped_for[size_t(reason)];
                break;
        }
    }
    // Sorted by code, then version.
    std::vector<VersionCount> Sorted() const;
    uint64_t Total(VersionVerdict verdict) const;

  private:
    // The entry of (code, version), added if new; it becomes the last one hit.
    VersionCount* Find(uint16_t code, PacketVersion version);

    // Few distinct (code, version) pairs occur; the last one hit is
    // checked first, as packets of one code often come in runs.
    std::vector<VersionCount> entries_;
    size_t last_ = 0;
};

// "v3", "v1/s3" (version 1, subpacket version 3), or "-" without a version.
std::string VersionText(PacketVersion version);
// {"B179":{"v4":{"as_is":216,"translated":0,"dropped":7,"secondary_cell":7,
//  "unknown_version":0,"short":0,"other_subscription":0}},...}
std::string VersionCountsJson(const std::vector<VersionCount>& counts);

}  // namespace dmux
