#include "tools/fieldtest/settings_rules.h"

namespace fieldtest {

namespace {

constexpr const char* kSettingNames[] = {"diaglogmask", "tether_enable", "ens_value",
                                         "apn_name",    "enabled_rats",  "evdo_enable",
                                         "onex_enable", "ims_enable"};

// The menu names of the RAT settings, as the daemon's menu has them.
constexpr const char* kRatNames[] = {"NONE",      "CDMA_ONLY", "EVDO_ONLY", "WCDMA",
                                     "CDMA+EVDO", "LTE_ONLY",  "WCDMA+LTE", "CDMA1X+EVDO+LTE"};

bool Known(const std::string& name) {
    for (const char* setting : kSettingNames)
        if (name == setting) return true;
    return false;
}

}  // namespace

std::span<const char* const> SettingNames() {
    return kSettingNames;
}

std::vector<std::string> SettingChoices(const std::string& name) {
    if (!Known(name) || name == "apn_name") return {};
    if (name == "enabled_rats") return {std::begin(kRatNames), std::end(kRatNames)};
    return {"0", "1"};
}

std::string SettingError(const std::string& name, const std::string& value) {
    if (!Known(name)) return "unknown setting '" + name + "'";
    if (value.empty()) return name + " needs a value";
    std::vector<std::string> choices = SettingChoices(name);
    if (choices.empty()) return {};
    std::string list;
    for (const std::string& choice : choices) {
        if (choice == value) return {};
        list += (list.empty() ? "" : ", ") + choice;
    }
    return "'" + value + "' is not a value of " + name + " (one of: " + list + ")";
}

}  // namespace fieldtest
