#include "tools/modemsim/scenario.h"

#include <cctype>

#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/wcdma_world.h"
#include "tools/scenario_file.h"

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

namespace {

using Json = nlohmann::json;

enum class Kind { kObject, kList, kNumber, kText, kFlag };

struct Member {
    const char* name;
    Kind kind;
    // For a list: what each of its entries holds (each is an object).
    std::vector<Member> entries = {};
};

bool IsKind(const Json& value, Kind kind) {
    switch (kind) {
        case Kind::kObject:
            return value.is_object();
        case Kind::kList:
            return value.is_array();
        case Kind::kNumber:
            return value.is_number();
        case Kind::kText:
            return value.is_string();
        case Kind::kFlag:
            return value.is_boolean();
    }
    return false;
}

const char* KindName(Kind kind) {
    switch (kind) {
        case Kind::kObject:
            return "an object";
        case Kind::kList:
            return "a list";
        case Kind::kNumber:
            return "a number";
        case Kind::kText:
            return "a text";
        case Kind::kFlag:
            return "true or false";
    }
    return "";
}

// Whether `object`'s members named in `members` are of their kind (absent
// ones are fine); the first that is not, as "where.name must be ...".
std::string CheckMembers(const Json& object, const std::string& where,
                         const std::vector<Member>& members) {
    for (const Member& member : members) {
        auto found = object.find(member.name);
        if (found == object.end()) continue;
        std::string at = where + "." + member.name;
        if (!IsKind(*found, member.kind)) return at + " must be " + KindName(member.kind);
        if (member.kind != Kind::kList || member.entries.empty()) continue;
        for (size_t i = 0; i < found->size(); ++i) {
            std::string entry = at + "[" + std::to_string(i) + "]";
            if (!(*found)[i].is_object()) return entry + " must be an object";
            std::string problem = CheckMembers((*found)[i], entry, member.entries);
            if (!problem.empty()) return problem;
        }
    }
    return "";
}

// The members the QMI and DIAG sides read with a type of their own; the
// worlds read theirs leniently (a wrong type falls back to the default).
std::string CheckScenario(const Json& scenario) {
    for (const char* section : {"qmi", "diag", "wcdma", "lte"}) {
        if (!scenario.contains(section) || !scenario[section].is_object())
            return std::string(section) + " must be an object";
    }
    std::string problem = CheckMembers(
        scenario["qmi"], "qmi",
        {{"reset_down_ms", Kind::kNumber},
         {"services",
          Kind::kList,
          {{"service", Kind::kNumber}, {"major", Kind::kNumber}, {"minor", Kind::kNumber}}},
         {"misc_info", Kind::kObject},
         {"states", Kind::kObject},
         {"umts", Kind::kObject},
         {"lte_geran", Kind::kObject},
         {"refuse", Kind::kObject},
         {"delay_ms", Kind::kObject},
         {"raw_response", Kind::kObject}});
    if (!problem.empty()) return problem;
    return CheckMembers(
        scenario["diag"], "diag",
        {{"status", Kind::kNumber},
         {"capture_after_masks", Kind::kNumber},
         {"capture_pace", Kind::kText},
         {"capture_loop", Kind::kFlag},
         {"rrc_states", Kind::kList, {{"state", Kind::kNumber}, {"hold_ms", Kind::kNumber}}},
         {"rrc_period_ms", Kind::kNumber},
         {"records", Kind::kList, {{"payload", Kind::kText}, {"period_ms", Kind::kNumber}}}});
}

}  // namespace

bool LoadScenario(const std::string& path, nlohmann::json* scenario, std::string* error) {
    *scenario = DefaultScenario();
    nlohmann::json patch = nlohmann::json::object();
    if (!path.empty()) {
        if (!tools::ReadScenarioFile(path, &patch, error)) return false;
        scenario->merge_patch(patch);
    }
    if (std::string problem = CheckScenario(*scenario); !problem.empty()) {
        *error = "scenario " + (path.empty() ? std::string("(built in)") : path) + ": " + problem;
        return false;
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
