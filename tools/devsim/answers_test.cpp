// The answers of the three control objects, from the built-in scenario
// with a few changes, request by request.
#include "tools/devsim/answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/devsim/scenario.h"

namespace {

using nlohmann::json;
using ::testing::ElementsAre;

devsim::Request MakeRequest(const std::string& msg, const std::string& dat,
                            const std::string& encoding = "") {
    std::string text = "@control.4\nmsg::" + msg + "\nid::3323\ndat:" + encoding + ":" + dat + "\n";
    std::optional<devsim::Request> request = devsim::ParseRequest(text);
    EXPECT_TRUE(request.has_value());
    return request.value_or(devsim::Request{});
}

json Scenario(const char* patch) {
    json scenario = devsim::DefaultScenario();
    scenario.merge_patch(json::parse(patch));
    return scenario;
}

struct LeafCase {
    const char* name;
    const char* scenario_patch;
    const char* leaf;
    const char* reply_line;
};

class OmadmLeafTest : public ::testing::TestWithParam<LeafCase> {};

TEST_P(OmadmLeafTest, Answers) {
    const LeafCase& c = GetParam();
    devsim::Answer answer =
        devsim::AnswerOmadm(Scenario(c.scenario_patch), MakeRequest("get_leaf_node", c.leaf));
    EXPECT_THAT(answer.lines, ElementsAre(c.reply_line));
    EXPECT_TRUE(answer.patch.is_null());
}

INSTANTIATE_TEST_SUITE_P(
    Leaves, OmadmLeafTest,
    ::testing::Values(
        LeafCase{"internet_name", "{}", "./ManagedObjects/ConnMO/LTE/APN/3/Setting/Name",
                 R"(dat:json:{"value":"vzwinternet"})"},
        LeafCase{"ims_ip", "{}", "./ManagedObjects/ConnMO/LTE/APN/1/Setting/Ip",
                 R"(dat:json:{"value":"IPv6"})"},
        LeafCase{"configured_error", R"({"omadm": {"errors": {"2/Timer": 1}}})",
                 "./ManagedObjects/ConnMO/LTE/APN/2/Setting/Timer", "err:n:1"},
        LeafCase{"removed_leaf", R"({"omadm": {"apns": {"4": {"Enabled": null}}}})",
                 "./ManagedObjects/ConnMO/LTE/APN/4/Setting/Enabled", "err:n:2"},
        LeafCase{"entry_out_of_tree", "{}", "./ManagedObjects/ConnMO/LTE/APN/9/Setting/Name",
                 "err:n:2"},
        LeafCase{"unknown_node", "{}", "./ManagedObjects/ConnMO/LTE/APN/1/Setting/Colour",
                 "err:n:2"},
        LeafCase{"not_a_leaf_path", "{}", "./ManagedObjects/ConnMO/LTE/APN/1/Setting/", "err:n:2"},
        LeafCase{"garbage", "{}", "\x01\x02/../APN/x", "err:n:2"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(OmadmTest, DelayAndUnknownRequest) {
    json scenario = Scenario(R"({"omadm": {"delay_ms": 250}})");
    devsim::Answer answer = devsim::AnswerOmadm(
        scenario, MakeRequest("get_leaf_node", "./ManagedObjects/ConnMO/LTE/APN/3/Setting/Id"));
    EXPECT_EQ(answer.delay_ms, 250);
    EXPECT_THAT(devsim::AnswerOmadm(scenario, MakeRequest("set_leaf_node", "x")).lines,
                ElementsAre("err:n:22"));
}

TEST(ConnectionServiceTest, SetChangesServiceStatusAndOmadmTogether) {
    json state = devsim::DefaultScenario();
    devsim::Answer set = devsim::AnswerConnectionService(
        state, MakeRequest("set_apn_setting", R"({"name":"internet","APN":"bench.apn"})", "json"));
    EXPECT_THAT(set.lines, ElementsAre());
    ASSERT_TRUE(set.patch.is_object());
    state.merge_patch(set.patch);
    EXPECT_EQ(state["connection_service"]["apns"]["internet"], "bench.apn");
    EXPECT_EQ(state["pdns"]["internet"]["apn"], "bench.apn");
    EXPECT_EQ(state["omadm"]["apns"]["3"]["Name"], "bench.apn");
    EXPECT_EQ(state["pdns"]["tethering"]["apn"], "vzwinternet");  // another PDN keeps its own
    devsim::Answer get = devsim::AnswerConnectionService(
        state, MakeRequest("get_apn_setting", R"({"name":"internet"})", "json"));
    EXPECT_THAT(get.lines, ElementsAre(R"(dat:json:{"APN":"bench.apn","name":"internet"})"));
}

struct RefusalCase {
    const char* name;
    const char* scenario_patch;
    const char* msg;
    const char* dat;
    const char* reply_line;
};

class ConnectionRefusalTest : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(ConnectionRefusalTest, AnswersErrAndChangesNothing) {
    const RefusalCase& c = GetParam();
    devsim::Answer answer = devsim::AnswerConnectionService(Scenario(c.scenario_patch),
                                                            MakeRequest(c.msg, c.dat, "json"));
    EXPECT_THAT(answer.lines, ElementsAre(c.reply_line));
    EXPECT_TRUE(answer.patch.is_null());
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, ConnectionRefusalTest,
    ::testing::Values(
        RefusalCase{"set_refused", R"({"connection_service": {"refuse": {"set_apn_setting": 5}}})",
                    "set_apn_setting", R"({"name":"internet","APN":"x"})", "err:n:5"},
        RefusalCase{"get_refused", R"({"connection_service": {"refuse": {"get_apn_setting": 7}}})",
                    "get_apn_setting", R"({"name":"internet"})", "err:n:7"},
        RefusalCase{"unknown_name", "{}", "get_apn_setting", R"({"name":"nowhere"})", "err:n:22"},
        RefusalCase{"no_name", "{}", "get_apn_setting", R"({})", "err:n:22"},
        RefusalCase{"apn_not_text", "{}", "set_apn_setting", R"({"name":"internet","APN":5})",
                    "err:n:22"},
        RefusalCase{"dat_not_json", "{}", "get_apn_setting", "{name", "err:n:22"},
        RefusalCase{"unknown_request", "{}", "drop_apn", R"({"name":"internet"})", "err:n:22"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RadioControlTest, RefusesListedSettingsAndBadRequests) {
    json state = Scenario(R"({"radio_control": {"refuse": [4, 8], "refuse_err": 13}})");
    for (const char* dat : {R"({"enabled_technologies":4})", R"({"enabled_technologies":8})"}) {
        devsim::Answer answer =
            devsim::AnswerRadioControl(state, MakeRequest("configure_rats", dat, "json"));
        EXPECT_THAT(answer.lines, ElementsAre("err:n:13")) << dat;
        EXPECT_TRUE(answer.patch.is_null()) << dat;
    }
    for (const char* dat : {R"({"enabled_technologies":"18"})", R"([18])", "{}", "garbage"}) {
        devsim::Answer answer =
            devsim::AnswerRadioControl(state, MakeRequest("configure_rats", dat, "json"));
        EXPECT_THAT(answer.lines, ElementsAre("err:n:22")) << dat;
        EXPECT_TRUE(answer.patch.is_null()) << dat;
    }
}

}  // namespace
