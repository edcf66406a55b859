// The DM library's own PPS object: what it delivered, translated and
// dropped per log code and version (and why), its frame counts, the
// subscription it keeps and how far a capture replay has come. Written by
// the reader thread when the counts change: at most about once a second
// while packets keep coming, at once when the source goes quiet, and at the
// end of each replay pass; so it is true within a second on any source and
// can be watched while the daemon runs (`fieldtest dmstats`).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace dmux {

inline constexpr const char* kDmStatsObject = "/pps/services/radioctrl/modem0/diag/dm_stats";
inline constexpr auto kDmStatsInterval = std::chrono::milliseconds(1000);

struct DmStatsValues {
    uint64_t frames_good = 0;
    uint64_t frames_bad = 0;
    uint64_t log_packets = 0;
    uint64_t delivered = 0;
    uint64_t translated = 0;
    uint64_t dropped = 0;
    uint64_t other_subscription = 0;
    uint32_t subscription = 0;  // 0: none seen
    int replay_percent = -1;    // -1: not a capture replay
    uint64_t replay_passes = 0;
    std::string versions_json;  // VersionCountsJson
};

// The attribute lines of one write of the object.
std::string DmStatsText(const DmStatsValues& values);

class DmStatsObject {
  public:
    DmStatsObject() = default;
    ~DmStatsObject();
    DmStatsObject(const DmStatsObject&) = delete;
    DmStatsObject& operator=(const DmStatsObject&) = delete;

    // Writes when `force` or when the interval has passed since the last
    // write. Without a PPS broker nothing is written; the open is tried
    // again at the next write.
    void Publish(const DmStatsValues& values, bool force);
    // Whether the interval has passed since the last write.
    bool Due() const;
    // Whether the counts differ from the last ones written.
    bool Changed(const DmStatsValues& values) const;

  private:
    int fd_ = -1;
    bool written_ = false;
    DmStatsValues last_values_;  // without versions_json
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace dmux
