// The APN name against devsim's connection service, in this process: each
// change asks the service and verifies what it holds; CurrentApnName and
// diag/config (a socketpair here, so every write can be read back) follow.
// An accepted and a refused name are ApnNameProcessTest's; here are the
// answers and failures of every other shape.
#include "config/apn_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/qnx/slogf.h"
#include "reports/lte/apn_info.h"
#include "service/tavora_context.h"
#include "testsupport/child_process.h"
#include "testsupport/devsim_process.h"
#include "testsupport/message_pair.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string Line(const char* name, const std::string& text) {
    char line[512];
    std::snprintf(line, sizeof line, "%30s : %s", name, text.c_str());
    return line;
}

class ApnNameTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetApnInfo();
        context_.config_fd = config_.ours;
        g_tavora_context = &context_;
    }
    void TearDown() override {
        g_tavora_context = nullptr;
        ResetApnInfo();
    }
    // devsim with the connection service as `patch` makes it.
    void StartService(const std::string& patch) {
        devsim_ = std::make_unique<rt::test::DevsimProcess>(patch);
        ASSERT_TRUE(devsim_->ready()) << devsim_->process().Stderr();
    }
    int Requests(const std::string& msg) { return devsim_->process().CountInStderr("msg::" + msg); }

    rt::test::PpsBroker broker_;
    std::unique_ptr<rt::test::DevsimProcess> devsim_;
    rt::test::MessagePair config_;
    TavoraContext context_;
    SlogCapture slog_;
};

TEST_F(ApnNameTest, NoServiceMeansOneLineAndNoVerification) {
    StartService(R"({"connection_service": {"serve": false}})");
    SetAPNName("other");
    std::vector<std::string> ours;
    for (const std::string& text : slog_.texts())
        if (text.find("APNName") != std::string::npos) ours.push_back(text);
    ASSERT_EQ(ours.size(), 1u) << ::testing::PrintToString(ours);
    EXPECT_THAT(ours[0], HasSubstr("SetAPNName : Failed to open /pps/services/cds/vesta/control("));
    EXPECT_THAT(config_.Drain(), IsEmpty());
}

TEST_F(ApnNameTest, RefusedVerificationChangesNothing) {
    StartService(R"({"connection_service": {"refuse": {"get_apn_setting": 7}}})");
    SetAPNName("myinternet");
    EXPECT_TRUE(slog_.contains(Line("VerifyAPNName", "Failed to set APN name error 7\n")));
    EXPECT_STREQ(CurrentApnName, "vzwinternet");
    EXPECT_THAT(config_.Drain(), IsEmpty());
}

TEST_F(ApnNameTest, WithoutConfigObjectTheWriteBackIsLogged) {
    StartService(R"({"connection_service": {"refuse": {"set_apn_setting": 5}}})");
    const int config_fd = context_.config_fd;
    context_.config_fd = -1;
    SetAPNName("other");
    context_.config_fd = config_fd;
    EXPECT_TRUE(slog_.contains(Line(
        "VerifyAPNName",
        "Tavora: failed to open /pps/services/radioctrl/modem0/diag/config?delta for encoding\n")));
    EXPECT_THAT(config_.Drain(), IsEmpty());
}

struct AnswerCase {
    const char* name;
    std::string text;
    const char* copy_after;  // CurrentApnName afterwards
    bool written_back;
};

TEST_F(ApnNameTest, VerificationAnswersOfEveryShape) {
    const AnswerCase cases[] = {
        // A shorter name replaces the whole of the longer copy.
        {"new_name", "@control\nres::get_apn_setting\ndat:json:{\"APN\":\"next\"}\n", "next",
         false},
        {"same_name", "@control\ndat:json:{\"APN\":\"vzwinternet\"}\n", "vzwinternet", true},
        {"no_dat", "@control\nres::get_apn_setting\n", "vzwinternet", false},
        {"apn_not_text", "@control\ndat:json:{\"APN\":5}\n", "vzwinternet", false},
        {"dat_not_object", "@control\ndat::text\n", "vzwinternet", false},
        {"err", "@control\nerr:n:3\ndat:json:{\"APN\":\"next\"}\n", "vzwinternet", false},
        {"garbage", "\x01\x02:json:{{{", "vzwinternet", false},
        {"long_name", "@control\ndat:json:{\"APN\":\"" + std::string(300, 'x') + "\"}\n", nullptr,
         false},
    };
    for (const AnswerCase& c : cases) {
        ResetApnInfo();
        std::string text = c.text;
        ReconcileApnAnswerText(text.data());
        if (c.copy_after != nullptr) {
            EXPECT_STREQ(CurrentApnName, c.copy_after) << c.name;
        } else {
            EXPECT_EQ(std::string(CurrentApnName), std::string(255, 'x')) << c.name;
        }
        EXPECT_EQ(config_.Drain().size(), c.written_back ? 1u : 0u) << c.name;
    }
}

}  // namespace
