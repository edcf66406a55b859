// TavoraConfigObjDelta: one delta read from config_fd (a socketpair here),
// applied through a table of recording actions in place of the real one.
#include "config/config_delta.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "config/config_actions.h"
#include "platform/qnx/slogf.h"
#include "service/tavora_context.h"
#include "testsupport/message_pair.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::vector<std::string> applied;

template <const char* kName>
void Apply(const char* text) {
    applied.push_back(std::string(kName) + "=" + text);
}
template <const char* kName>
void Absent() {
    applied.push_back(std::string(kName) + " absent");
}

constexpr char kLogMask[] = "diaglogmask";
constexpr char kTether[] = "tether_enable";
constexpr char kEns[] = "ens_value";
constexpr char kRats[] = "enabled_rats";
constexpr char kIms[] = "ims_enable";

// The real order, with the RAT step's absent case like the real one.
const ConfigAction kRecordingActions[] = {
    {kLogMask, Apply<kLogMask>},          {kTether, Apply<kTether>}, {kEns, Apply<kEns>},
    {kRats, Apply<kRats>, Absent<kRats>}, {kIms, Apply<kIms>},
};

class ConfigDeltaTest : public ::testing::Test {
  protected:
    void SetUp() override {
        applied.clear();
        context_.config_fd = config_.ours;
        g_tavora_context = &context_;
        SetConfigActionsForTest(kRecordingActions);
    }
    void TearDown() override {
        SetConfigActionsForTest({});
        g_tavora_context = nullptr;
    }
    void Delta(const std::string& lines) {
        ASSERT_TRUE(config_.Send("@config\n" + lines));
        TavoraConfigObjDelta();
    }

    rt::test::MessagePair config_;
    TavoraContext context_;
};

// One delta in, the actions it ran out, in the order they ran.
struct DeltaCase {
    const char* lines;
    std::vector<std::string> applied;
};

TEST_F(ConfigDeltaTest, AppliesInTableOrderStringsOnly) {
    const DeltaCase cases[] = {
        {"ims_enable::1\ntether_enable::1\nenabled_rats::LTE_ONLY\ndiaglogmask::1\n",
         {"diaglogmask=1", "tether_enable=1", "enabled_rats=LTE_ONLY", "ims_enable=1"}},
        {"tether_enable::1\ndiaglogmask::1\n",
         {"diaglogmask=1", "tether_enable=1", "enabled_rats absent"}},
        {"ims_enable::1\n", {"enabled_rats absent", "ims_enable=1"}},
        // A number-typed or deleted attribute is not applied.
        {"diaglogmask:n:1\n", {"enabled_rats absent"}},
        {"enabled_rats:n:18\n", {"enabled_rats absent"}},
        {"-ens_value\n", {"enabled_rats absent"}},
        {"ens_value::\n", {"ens_value=", "enabled_rats absent"}},
        {"", {"enabled_rats absent"}},
        {"brightness::7\nens_value::3\n", {"ens_value=3", "enabled_rats absent"}},
    };
    for (const DeltaCase& c : cases) {
        applied.clear();
        SlogCapture log;  // a delta that decodes is applied without a word
        Delta(c.lines);
        EXPECT_EQ(applied, c.applied) << c.lines;
        EXPECT_THAT(log.texts(), IsEmpty()) << c.lines;
    }
}

TEST_F(ConfigDeltaTest, NothingToReadAppliesNothing) {
    TavoraConfigObjDelta();
    EXPECT_THAT(applied, IsEmpty());
}

TEST_F(ConfigDeltaTest, TextThatDoesNotParseAppliesNothing) {
    testing::internal::CaptureStderr();
    Delta("this line has no colon\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Tavora: PPS decoding failed!");
    EXPECT_THAT(applied, IsEmpty());
}

TEST_F(ConfigDeltaTest, NoConfigObjectReportsOpenAndAppliesNothing) {
    context_.config_fd = -1;
    testing::internal::CaptureStderr();
    TavoraConfigObjDelta();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), ::testing::StartsWith("open: "));
    EXPECT_THAT(applied, IsEmpty());
}

// The real table keeps the fixed order, whatever rows have joined it.
TEST(ConfigActionsTest, RealTableFollowsTheFixedOrder) {
    const std::vector<std::string> order = {"diaglogmask", "tether_enable", "ens_value",
                                            "apn_name",    "enabled_rats",  "evdo_enable",
                                            "onex_enable", "ims_enable"};
    int last = -1;
    bool has_rats = false;
    for (const ConfigAction& action : ConfigActions()) {
        auto at = std::find(order.begin(), order.end(), action.attribute);
        ASSERT_NE(at, order.end()) << action.attribute;
        int index = static_cast<int>(at - order.begin());
        EXPECT_GT(index, last) << action.attribute << " out of order";
        last = index;
        ASSERT_NE(action.apply, nullptr) << action.attribute;
        // Only the RAT step acts on a delta that lacks its attribute.
        EXPECT_EQ(action.when_absent != nullptr, std::string(action.attribute) == "enabled_rats");
        has_rats = has_rats || std::string(action.attribute) == "enabled_rats";
    }
    EXPECT_TRUE(has_rats);
}

}  // namespace
