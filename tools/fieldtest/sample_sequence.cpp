#include "tools/fieldtest/sample_sequence.h"

#include <algorithm>

namespace fieldtest {

SampleSequence::Verdict SampleSequence::Take(long long run, long long number) {
    if (last_ == 0 || run != run_) {
        run_ = run;
        last_ = number;
        holes_.clear();
        return Verdict::kNext;
    }
    if (number == last_ + 1) {
        last_ = number;
        return Verdict::kNext;
    }
    if (number > last_) {
        gap_ = number - last_ - 1;
        for (long long n = std::max(last_ + 1, number - static_cast<long long>(kMaxHoles));
             n < number; ++n)
            holes_.insert(n);
        while (holes_.size() > kMaxHoles) holes_.erase(holes_.begin());
        // Saturates rather than overflows, whatever runs the broker brings.
        missed_ = std::min(missed_ + gap_, kMaxNumber << 20);
        last_ = number;
        return Verdict::kGap;
    }
    if (holes_.erase(number) > 0) {
        --missed_;
        return Verdict::kNext;
    }
    return Verdict::kCopy;
}

}  // namespace fieldtest
