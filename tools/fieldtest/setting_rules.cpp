#include "tools/fieldtest/setting_rules.h"

#include <cstddef>
#include <iterator>

namespace {

enum class Kind { kSwitch, kApnName, kRatMenu };

struct Setting {
    const char* name;
    Kind kind;
};

// In the order the daemon applies them. Switches are "1" and "0": the log
// mask and ENS ignore any other text, and tethering and the throttles would
// read it as off.
constexpr Setting kSettings[] = {
    {"diaglogmask", Kind::kSwitch},   {"tether_enable", Kind::kSwitch},
    {"ens_value", Kind::kSwitch},     {"apn_name", Kind::kApnName},
    {"enabled_rats", Kind::kRatMenu}, {"evdo_enable", Kind::kSwitch},
    {"onex_enable", Kind::kSwitch},   {"ims_enable", Kind::kSwitch},
};

// The daemon's menu names of RAT settings; another name is ignored.
constexpr const char* kRatMenu[] = {"NONE",      "CDMA_ONLY", "EVDO_ONLY", "WCDMA",
                                    "CDMA+EVDO", "LTE_ONLY",  "WCDMA+LTE", "CDMA1X+EVDO+LTE"};

// The daemon keeps at most this many characters of an APN name.
constexpr size_t kApnNameMax = 255;

std::string RatMenuNames() {
    std::string names;
    for (const char* name : kRatMenu) names += (names.empty() ? "" : " ") + std::string(name);
    return names;
}

std::string CheckApnName(const std::string& value) {
    if (value.empty()) return "apn_name needs a name";
    if (value.size() > kApnNameMax)
        return "apn_name is at most " + std::to_string(kApnNameMax) + " characters";
    for (char c : value) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            return "apn_name cannot hold control characters";
    }
    return "";
}

}  // namespace

std::string CheckSetting(const std::string& name, const std::string& value) {
    for (const Setting& setting : kSettings) {
        if (name != setting.name) continue;
        switch (setting.kind) {
            case Kind::kSwitch:
                if (value == "0" || value == "1") return "";
                return name + " is 0 or 1, not '" + value + "'";
            case Kind::kApnName:
                return CheckApnName(value);
            case Kind::kRatMenu:
                for (const char* menu : kRatMenu)
                    if (value == menu) return "";
                return "enabled_rats is one of " + RatMenuNames() + " (as written), not '" + value +
                       "'";
        }
    }
    return "unknown setting '" + name + "' (settings: " + SettingNames() + ")";
}

std::string SettingNames() {
    std::string names;
    for (const Setting& setting : kSettings)
        names += (names.empty() ? "" : " ") + std::string(setting.name);
    return names;
}

std::vector<std::string> SettingNameList() {
    std::vector<std::string> names;
    for (const Setting& setting : kSettings) names.emplace_back(setting.name);
    return names;
}

std::vector<std::string> SettingChoices(const std::string& name) {
    for (const Setting& setting : kSettings) {
        if (name != setting.name) continue;
        switch (setting.kind) {
            case Kind::kSwitch:
                return {"0", "1"};
            case Kind::kApnName:
                return {};
            case Kind::kRatMenu:
                return {std::begin(kRatMenu), std::end(kRatMenu)};
        }
    }
    return {};
}
