// What every modemsim world has besides its state: its scenario section
// merged over its defaults, whether it is on, how often its packets are
// logged, how often it hands over, and the moment it began.
#pragma once

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "tools/modemsim/world_support.h"

namespace modemsim {

class WorldClock {
  public:
    bool enabled() const { return enabled_; }
    int period_ms() const { return period_ms_; }
    int handover_period_ms() const { return handover_period_ms_; }
    const nlohmann::json& settings() const { return settings_; }

    // Seconds since the world began.
    double Elapsed() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

  protected:
    WorldClock(nlohmann::json defaults, const nlohmann::json& section, int handover_default_ms)
        : settings_(std::move(defaults)), start_(std::chrono::steady_clock::now()) {
        if (section.is_object()) settings_.merge_patch(section);
        enabled_ = BoolOr(settings_, "enabled", true);
        period_ms_ = std::max(10, IntOr(settings_, "period_ms", 1000));
        handover_period_ms_ =
            std::max(1, IntOr(settings_, "handover_period_ms", handover_default_ms));
    }

    nlohmann::json settings_;
    bool enabled_ = true;
    int period_ms_ = 1000;
    int handover_period_ms_ = 1;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace modemsim
