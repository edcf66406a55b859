// What modemsim's worlds share: reading a scenario section that may lack
// any key, and the sine every value of a world drifts on.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>

namespace modemsim {

// `value` as a whole number, or `fallback` when it is not a number; a number
// out of range is clamped rather than cast into garbage (a double beyond
// int64 is undefined to cast).
inline int64_t Int64Of(const nlohmann::json& value, int64_t fallback) {
    if (!value.is_number()) return fallback;
    if (value.is_number_unsigned())
        return int64_t(std::min<uint64_t>(value.get<uint64_t>(), INT64_MAX));
    if (value.is_number_integer()) return value.get<int64_t>();
    double number = value.get<double>();
    return std::isnan(number) ? fallback : int64_t(std::clamp(number, -9.0e18, 9.0e18));
}
// As an int within +-10^9, so that a base and its drift add up without
// overflowing whatever the scenario says.
inline constexpr int64_t kIntLimit = 1'000'000'000;
inline int IntOf(const nlohmann::json& value, int fallback) {
    return int(std::clamp<int64_t>(Int64Of(value, fallback), -kIntLimit, kIntLimit));
}

// The same for a member of `object`, `fallback` when it is missing.
inline int64_t Int64Or(const nlohmann::json& object, const char* key, int64_t fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    return found == object.end() ? fallback : Int64Of(*found, fallback);
}
inline int IntOr(const nlohmann::json& object, const char* key, int fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    return found == object.end() ? fallback : IntOf(*found, fallback);
}

// A text or a flag of `object`, or `fallback` when it is missing or of
// another type: a scenario with a wrong type falls back, never throws.
inline std::string StringOr(const nlohmann::json& object, const char* key,
                            const std::string& fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    return (found != object.end() && found->is_string()) ? found->get<std::string>() : fallback;
}
inline bool BoolOr(const nlohmann::json& object, const char* key, bool fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    return (found != object.end() && found->is_boolean()) ? found->get<bool>() : fallback;
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
