// A simulator's scenario file read as one JSON object, for modemsim and
// devsim. Nesting is bounded while the file is parsed: merging a scenario
// over the default and walking it are recursive, so a file nested tens of
// thousands deep would end the simulator on a stack overflow instead of a
// clear error.
#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace tools {

// Far deeper than any scenario needs.
constexpr int kMaxScenarioDepth = 64;

// The file's JSON object; false with the reason when the file cannot be
// read, is not JSON, is not an object, or is nested past kMaxScenarioDepth.
inline bool ReadScenarioFile(const std::string& path, nlohmann::json* out, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read scenario " + path;
        return false;
    }
    bool too_deep = false;
    // The parser asks before it keeps each value: past the bound nothing is
    // kept, so the deep part of the file costs neither memory nor stack.
    auto keep = [&](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
        if (depth > kMaxScenarioDepth) too_deep = true;
        return !too_deep;
    };
    *out = nlohmann::json::parse(in, keep, /*allow_exceptions=*/false);
    if (too_deep) {
        *error = "scenario " + path + " is nested deeper than " +
                 std::to_string(kMaxScenarioDepth) + " levels";
        return false;
    }
    if (out->is_discarded() || !out->is_object()) {
        *error = "scenario " + path + " is not a JSON object";
        return false;
    }
    return true;
}

}  // namespace tools
