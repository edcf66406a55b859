// A device's sample numbers as the screen hears them, to count the samples
// it missed. A publisher numbers its samples 1, 2, 3... under a run id of
// its own: a number past the next one is a gap of the numbers between, a
// number heard before is a copy (QoS 1 delivers at least once), and a new
// run counts afresh, so a restarted publisher is no gap. A late number
// that fills a gap takes it back, as long as it is among the last
// kMaxHoles numbers missed.
#pragma once

#include <cstddef>
#include <set>

namespace fieldtest {

class SampleSequence {
  public:
    static constexpr size_t kMaxHoles = 1000;
    // Numbers run from 1; larger ones are no publisher's (2^40 samples
    // take decades).
    static constexpr long long kMaxNumber = 1LL << 40;

    enum class Verdict { kNext, kCopy, kGap };
    // Takes sample `number` of publisher run `run`; kGap when numbers were
    // skipped (missed() grew by gap()).
    Verdict Take(long long run, long long number);
    long long last() const { return last_; }
    long long missed() const { return missed_; }
    long long gap() const { return gap_; }

  private:
    long long run_ = 0;
    long long last_ = 0;  // 0: no run heard yet
    long long missed_ = 0;
    long long gap_ = 0;
    std::set<long long> holes_;
};

}  // namespace fieldtest
