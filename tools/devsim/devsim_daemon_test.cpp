// radio_tavora with devsim as the rest of the phone (the test fixture's
// default): the daemon's requests reach devsim and its answers come back.
#include <gtest/gtest.h>

#include <string>

#include "testsupport/daemon_fixture.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::DaemonOptions;

struct MenuCase {
    const char* name;
    const char* hardware_id;
    const char* menu;
    int sent;  // what devsim is asked to configure; -1: nothing
};

class DevsimDaemonTest : public ::testing::TestWithParam<MenuCase> {};

TEST_P(DevsimDaemonTest, MenuChoiceReachesRadioControl) {
    const MenuCase& c = GetParam();
    DaemonOptions options;
    options.hardware_id = c.hardware_id;
    DaemonFixture fixture(options);
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    ASSERT_TRUE(fixture.has_devsim());
    ASSERT_TRUE(fixture.WriteConfig({std::string("enabled_rats::") + c.menu}));
    if (c.sent < 0) {
        // A choice the device cannot take is refused by the daemon and never
        // sent; a later one that it can take is.
        ASSERT_TRUE(fixture.daemon().WaitForStderr("Not Supported Device Rat -1"))
            << fixture.daemon().Stderr();
        ASSERT_TRUE(fixture.WriteConfig({"enabled_rats::WCDMA"}));
        ASSERT_TRUE(fixture.devsim().WaitForStderr("\"enabled_technologies\":2}"))
            << fixture.devsim().Stderr();
        EXPECT_EQ(fixture.devsim().CountInStderr("msg::configure_rats"), 1);
        return;
    }
    std::string request = "msg::configure_rats id::3323 dat:json:{\"enabled_technologies\":" +
                          std::to_string(c.sent) + "}";
    ASSERT_TRUE(fixture.devsim().WaitForStderr(request)) << fixture.devsim().Stderr();
    EXPECT_TRUE(fixture.ObjectHolds(rt::test::kStatusPersistentObject,
                                    "{\"enabled_technologies\":" + std::to_string(c.sent) + "}"));
}

INSTANTIATE_TEST_SUITE_P(
    Devices, DevsimDaemonTest,
    ::testing::Values(MenuCase{"wcdma_lte_takes_lte_only", "0x52c0f9e4", "LTE_ONLY", 16},
                      MenuCase{"cdma_evdo_lte_takes_cdma_evdo", "0x53c0f9e4", "CDMA+EVDO", 12},
                      MenuCase{"wcdma_only_never_sends_lte", "0x51c0f9e4", "LTE_ONLY", -1}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
