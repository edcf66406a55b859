// fieldtest set: which settings and values reach diag/config.
#include "tools/fieldtest/setting_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::HasSubstr;

struct RuleCase {
    const char* name;
    std::string value;
    bool accepted;
};

TEST(SettingRulesTest, AcceptsWhatTheDaemonApplies) {
    const RuleCase cases[] = {
        {"diaglogmask", "1", true},
        {"diaglogmask", "0", true},
        {"diaglogmask", "2", false},  // the log mask takes exactly "1" and "0"
        {"tether_enable", "1", true},
        {"tether_enable", "yes", false},  // would disable tethering
        {"ens_value", "0", true},
        {"ens_value", "2", false},  // sends nothing
        {"ens_value", "", false},
        {"evdo_enable", "1", true},
        {"onex_enable", "0", true},
        {"ims_enable", "0", true},
        {"ims_enable", "true", false},  // would ask for state 0
        {"apn_name", "vzwinternet", true},
        {"apn_name", "", false},
        {"apn_name", std::string(255, 'a'), true},
        {"apn_name", std::string(256, 'a'), false},  // longer than the daemon keeps
        {"apn_name", "two\nlines", false},
        {"enabled_rats", "WCDMA+LTE", true},
        {"enabled_rats", "CDMA1X+EVDO+LTE", true},
        {"enabled_rats", "wcdma", false},  // names match exactly
        {"enabled_rats", "GSM", false},
        {"diaglog", "1", false},
        {"", "1", false},
    };
    for (const RuleCase& c : cases) {
        std::string reason = CheckSetting(c.name, c.value);
        EXPECT_EQ(reason.empty(), c.accepted) << c.name << "=" << c.value << ": " << reason;
    }
}

TEST(SettingRulesTest, ReasonsNameWhatIsAllowed) {
    EXPECT_THAT(CheckSetting("tethering", "1"), HasSubstr("unknown setting 'tethering'"));
    EXPECT_THAT(CheckSetting("tethering", "1"), HasSubstr(SettingNames()));
    EXPECT_EQ(CheckSetting("ims_enable", "2"), "ims_enable is 0 or 1, not '2'");
    EXPECT_THAT(CheckSetting("enabled_rats", "LTE"), HasSubstr("WCDMA+LTE"));
}

}  // namespace
