#include "tools/modemsim/scenario.h"

#include <cctype>
#include <fstream>
#include <sstream>

#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/wcdma_world.h"

namespace modemsim {

nlohmann::json DefaultScenario() {
    // A CDMA/UMTS/LTE phone on a quiet bench: one serving WCDMA cell with a
    // neighbour, an LTE cell with a few GERAN neighbours, a CDMA identity.
    // The static "umts" and "lte_geran" values answer a QMI side without a
    // world; the modemsim process measures its moving "wcdma" and "lte"
    // worlds (wcdma_world.h, lte_world.h).
    return nlohmann::json::parse(R"json({
      "qmi": {
        "reset_down_ms": 1000,
        "services": [{"service": 0, "major": 1, "minor": 5}, {"service": 227, "major": 1, "minor": 0}],
        "misc_info": {"pesn": "80A1B2C3", "sci": 2, "mob_p_rev": 6, "mob_fw": "1.0.4", "model": "TAVORA-X1"},
        "states": {"onex": 1, "evdo": 1, "ims": 0},
        "umts": {
          "present": 1, "valid": 1,
          "serving_uarfcn": 10700,
          "intra_freq": [{"psc": 300, "ecio": 14, "rscp": 980}],
          "active_set": [{"psc": 100, "ecio": 10, "rscp": 900}, {"psc": 200, "ecio": 20, "rscp": 950}],
          "inter_freq": [{"uarfcn": 10563, "cells": [{"psc": 17, "ecio": 18, "rscp": 1010}]}],
          "gsm": [{"arfcn": 128, "bsic": 33, "rssi": -880}]
        },
        "lte_geran": {
          "present": 1, "valid": 1,
          "groups": [{"cells": [{"bsic": 12, "rssi": -955}, {"bsic": 40, "rssi": -701}]},
                     {"cells": [{"bsic": 7, "rssi": -1020}]}]
        },
        "refuse": {},
        "delay_ms": {},
        "raw_response": {}
      },
      "diag": {},
      "wcdma": {},
      "lte": {}
    })json");
}

bool LoadScenario(const std::string& path, nlohmann::json* scenario, std::string* error) {
    *scenario = DefaultScenario();
    nlohmann::json patch = nlohmann::json::object();
    if (!path.empty()) {
        std::ifstream in(path);
        if (!in) {
            *error = "cannot read scenario " + path;
            return false;
        }
        patch = nlohmann::json::parse(in, nullptr, false);
        if (patch.is_discarded() || !patch.is_object()) {
            *error = "scenario " + path + " is not a JSON object";
            return false;
        }
        scenario->merge_patch(patch);
    }
    // With a world on, its measurement type comes from the world and the
    // qmi section holds only what the file says to lay over it; the
    // default's static values serve a QMI side that runs without a world.
    auto keep_files_own = [&](const char* key) {
        const nlohmann::json* named = nullptr;
        if (patch.contains("qmi") && patch["qmi"].is_object() && patch["qmi"].contains(key))
            named = &patch["qmi"][key];
        if (named != nullptr && named->is_object()) {
            (*scenario)["qmi"][key] = *named;
        } else {
            (*scenario)["qmi"].erase(key);
        }
    };
    if (WcdmaWorld(scenario->value("wcdma", nlohmann::json::object())).enabled())
        keep_files_own("umts");
    if (LteWorld(scenario->value("lte", nlohmann::json::object())).enabled())
        keep_files_own("lte_geran");
    return true;
}

std::optional<unsigned> ParseMessageIdKey(const std::string& key) {
    if (key.empty()) return std::nullopt;
    try {
        size_t used = 0;
        unsigned long value = std::stoul(key, &used, 0);
        if (used != key.size() || value > 0xFFFF) return std::nullopt;
        return static_cast<unsigned>(value);
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<std::vector<uint8_t>> ParseHex(const std::string& text) {
    std::vector<uint8_t> bytes;
    int high = -1;
    for (char c : text) {
        if (std::isspace(static_cast<unsigned char>(c))) continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
        int digit =
            std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(c) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) return std::nullopt;
    return bytes;
}

}  // namespace modemsim
