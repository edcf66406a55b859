// modemsim's scenario: what the simulated modem answers. A JSON file whose
// sections are merged (RFC 7386 merge patch) over the built-in default, so
// a file names only what it changes.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace modemsim {

// The built-in scenario.
nlohmann::json DefaultScenario();

// The default with the file merged over it; false with a message when the
// file cannot be read or is not a JSON object. While the "wcdma" world is
// enabled, the result's qmi.umts is the file's own qmi.umts (or none), to
// be laid over the world's measurement rather than the default's values;
// likewise qmi.lte_geran while the "lte" world is enabled.
bool LoadScenario(const std::string& path, nlohmann::json* scenario, std::string* error);

// Message ids as JSON keys: "0x1f", "31".
std::optional<unsigned> ParseMessageIdKey(const std::string& key);

// Hex text ("02 04 00 00", "0204...") to bytes; nullopt when it is not hex.
std::optional<std::vector<uint8_t>> ParseHex(const std::string& text);

}  // namespace modemsim
