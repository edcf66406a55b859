// The OMA-DM leaf reader against devsim's OMA-DM service, through a real
// broker.
#include "reports/lte/apn_info.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "platform/pps/pps_client.h"
#include "platform/qnx/slogf.h"
#include "service/tavora_context.h"
#include "testsupport/devsim_process.h"
#include "testsupport/message_pair.h"

namespace {

using rt::test::DevsimProcess;
using rt::test::PpsBroker;

constexpr const char* kOmadmControl = "/pps/services/omadm/radio/control?wait";

// GetAPNInfo with the daemon's OMA-DM handle and a stand-in for status_eutra.
class ApnInfoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetApnInfo();
        context_.eutra_fd = eutra_.ours;
    }
    void TearDown() override {
        if (context_.omadm_fd >= 0) ::close(context_.omadm_fd);
        ResetApnInfo();
    }
    // devsim with the patch, and the daemon's handle on its control object.
    void Serve(const std::string& patch) {
        devsim_ = std::make_unique<DevsimProcess>(patch);
        ASSERT_TRUE(devsim_->ready()) << devsim_->process().Stderr();
        context_.omadm_fd = pps_open(kOmadmControl, O_RDWR);
        ASSERT_GE(context_.omadm_fd, 0);
    }
    // What one GetAPNInfo call published.
    std::string Leaf(const char* node, int entry) {
        GetAPNInfo(&context_, node, entry);
        std::string text;
        for (const std::string& message : eutra_.Drain()) text += message;
        return text;
    }
    bool Logged(const std::string& part) const {
        for (const std::string& line : log_.texts())
            if (line.find(part) != std::string::npos) return true;
        return false;
    }

    PpsBroker broker_;
    std::unique_ptr<DevsimProcess> devsim_;
    TavoraContext context_;
    rt::test::MessagePair eutra_;
    SlogCapture log_;
};

TEST_F(ApnInfoTest, ErrorAnswersAndMissingLeavesGiveNoData) {
    Serve(R"({"omadm": {"errors": {"2/Timer": 1}, "apns": {"4": {"Timer": null}}}})");
    EXPECT_EQ(Leaf("Timer", 2), "lte_apn2_Timer::No data available!\n");
    EXPECT_TRUE(
        log_.contains(std::string(20, ' ') + "GetAPNInfo : Failed to get node Timer error 1\n"));
    EXPECT_EQ(Leaf("Timer", 4), "lte_apn4_Timer::No data available!\n");
    // A node name that makes the attribute name longer than 28 characters
    // is cut there.
    EXPECT_EQ(Leaf("AVeryLongNodeNameIndeed", 1),
              "lte_apn1_AVeryLongNodeNameIn::No data available!\n");
}

TEST_F(ApnInfoTest, EntryThreeNameIsTheInternetApn) {
    Serve(R"({"omadm": {"apns": {"1": {"Name": "first"}, "3": {"Name": "newinternet"}}}})");
    EXPECT_EQ(Leaf("Name", 1), "lte_apn1_Name::first\nlte_apn:: \n");
    EXPECT_STREQ(CurrentApnName, "vzwinternet");
    EXPECT_EQ(Leaf("Name", 3), "lte_apn3_Name::newinternet\nlte_apn:: \n");
    EXPECT_STREQ(CurrentApnName, "newinternet");
    EXPECT_EQ(Leaf("Name", 3), "lte_apn3_Name::newinternet\nlte_apn:: \n");
    EXPECT_STREQ(CurrentApnName, "newinternet");
}

TEST_F(ApnInfoTest, LongNamesAreKeptToTheirBuffers) {
    // 300 characters: published whole, remembered as its first 255.
    std::string name(300, 'n');
    Serve(R"({"omadm": {"apns": {"3": {"Name": ")" + name + R"("}}}})");
    EXPECT_EQ(Leaf("Name", 3), "lte_apn3_Name::" + name + "\nlte_apn:: \n");
    EXPECT_EQ(std::string(CurrentApnName), name.substr(0, 255));
}

TEST_F(ApnInfoTest, AnswerLargerThanTheBufferPublishesNothing) {
    std::string name(6000, 'x');
    Serve(R"({"omadm": {"apns": {"1": {"Name": ")" + name + R"("}}}})");
    // The cut answer does not parse: nothing is published for the leaf.
    EXPECT_EQ(Leaf("Name", 1), "");
    EXPECT_TRUE(Logged("GetAPNInfo : Tavora: Error in pps_decoder_parse_pps_str"));
    EXPECT_STREQ(CurrentApnName, "vzwinternet");
    // The next exchange is not thrown off by the cut answer.
    EXPECT_EQ(Leaf("Id", 2), "lte_apn2_Id::2\nlte_apn:: \n");
}

TEST_F(ApnInfoTest, NoControlObjectLogsAndPublishesNothing) {
    EXPECT_EQ(Leaf("Id", 1), "");
    EXPECT_TRUE(Logged("GetAPNInfo : Failed to open /pps/services/omadm/radio/control("));
    EXPECT_EQ(Leaf(nullptr, 1), "");
    EXPECT_TRUE(Logged("GetAPNInfo : Invalid node_name\n"));
    // A handler run without its context asks nothing either.
    log_.clear();
    GetAPNInfo(nullptr, "Id", 1);
    EXPECT_TRUE(Logged("GetAPNInfo : Failed to open /pps/services/omadm/radio/control("));
}

TEST_F(ApnInfoTest, SilentServiceCostsOneBoundedWaitAndNoLateAnswerIsMisread) {
    Serve(R"({"omadm": {"delay_ms": 3000}})");
    EXPECT_EQ(Leaf("Id", 1), "");
    EXPECT_TRUE(Logged("no answer for node Id of APN 1 within 2000 ms"));
    // While the answer is owed, no further leaf is asked.
    EXPECT_EQ(Leaf("Ip", 1), "");
    EXPECT_TRUE(Logged("owes 1 answers; node Ip of APN 1 not asked"));
    EXPECT_EQ(devsim_->process().CountInStderr("Setting/Ip"), 0);

    // The service speeds up; its late answer to Id arrives.
    ASSERT_TRUE(devsim_->Reload(R"({"omadm": {"delay_ms": 0}})"));
    pollfd late{context_.omadm_fd, POLLIN, 0};
    ASSERT_EQ(::poll(&late, 1, 5000), 1);
    // The next leaf gets its own answer, not the late one ("1").
    EXPECT_EQ(Leaf("Name", 3), "lte_apn3_Name::vzwinternet\nlte_apn:: \n");
}

}  // namespace
