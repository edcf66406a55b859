// radio_tavora when its PPS broker goes away: it ends with status 1 at once,
// so that a supervisor starts it again once the broker is back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "testsupport/daemon_fixture.h"

namespace {

using rt::test::DaemonFixture;
using ::testing::HasSubstr;

TEST(BrokerLossTest, DaemonEndsWithStatusOneWhenTheBrokerDies) {
    DaemonFixture fixture;
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    ASSERT_TRUE(fixture.broker().process().Signal(SIGKILL));
    EXPECT_EQ(fixture.daemon().Wait(10000), 1) << fixture.daemon().Stderr();
    EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr("BAD pps file descriptor!"));
}

TEST(BrokerLossTest, DaemonEndsWithStatusOneWhenTheBrokerStops) {
    DaemonFixture fixture;
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    ASSERT_TRUE(fixture.broker().process().Signal(SIGTERM));
    EXPECT_EQ(fixture.daemon().Wait(10000), 1) << fixture.daemon().Stderr();
}

}  // namespace
