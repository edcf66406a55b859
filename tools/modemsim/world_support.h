// What modemsim's worlds share: reading a scenario section that may lack
// any key, and the sine every value of a world drifts on.
#pragma once

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numbers>

namespace modemsim {

// A number of `object`, or `fallback` when it is missing or not a number.
inline int IntOr(const nlohmann::json& object, const char* key, int fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    return (found != object.end() && found->is_number()) ? found->get<int>() : fallback;
}
// The same for a value that may not fit an int (a 32-bit identity).
inline int64_t Int64Or(const nlohmann::json& object, const char* key, int64_t fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    return (found != object.end() && found->is_number()) ? found->get<int64_t>() : fallback;
}

inline const nlohmann::json& Section(const nlohmann::json& object, const char* key) {
    static const nlohmann::json kEmpty = nlohmann::json::object();
    if (!object.is_object()) return kEmpty;
    auto found = object.find(key);
    return (found != object.end() && found->is_object()) ? *found : kEmpty;
}

inline const nlohmann::json& List(const nlohmann::json& object, const char* key) {
    static const nlohmann::json kEmpty = nlohmann::json::array();
    if (!object.is_object()) return kEmpty;
    auto found = object.find(key);
    return (found != object.end() && found->is_array()) ? *found : kEmpty;
}

// Drift on a sine: never more than `amplitude` from zero. Each series gets
// its own phase so that the values do not all rise and fall together.
class Drift {
  public:
    Drift(double seconds, int period_ms) {
        double period = std::max(1, period_ms) / 1000.0;
        angle_ = 2 * std::numbers::pi * std::fmod(seconds, period) / period;
    }
    int Of(int amplitude, int series) const {
        return static_cast<int>(std::lround(amplitude * std::sin(angle_ + 0.9 * series)));
    }

  private:
    double angle_;
};

}  // namespace modemsim
