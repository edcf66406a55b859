// The 3gpp2info handler in this process: modemsim's QMI side answers, a
// pipe stands in for diag/status_3gpp2 so the exact text written (and its
// attribute order) can be read back, and the reply goes through a real
// broker.
#include "reports/lte/get_3gpp2_info.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "platform/qnx/slogf.h"
#include "reports/report_table.h"
#include "service/pps_server.h"
#include "service/tavora_context.h"
#include "service/tavora_strings.h"
#include "testsupport/child_process.h"
#include "testsupport/qmi_test_support.h"

namespace {

using qmi_test::Line;
using qmi_test::Modem;

class Get3GPP2InfoTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(::pipe2(status_, O_CLOEXEC | O_NONBLOCK), 0);
        context_.cdma_fd = status_[1];
        ASSERT_EQ(server_.pps_create_server_object(kControlServerPath), 0);
    }
    void TearDown() override {
        ResetVendorQmiForTest();
        ::close(status_[0]);
        ::close(status_[1]);
    }
    // Runs the handler and returns what it wrote to diag/status_3gpp2.
    std::string Run() {
        ReportHandlerFor("3gpp2info")(&server_, &context_, 5, "3gpp2info", "17", nullptr);
        char buffer[1024];
        ssize_t n = ::read(status_[0], buffer, sizeof buffer);
        return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
    }

    rt::test::PpsBroker broker_;
    PPSServer server_;
    TavoraContext context_;
    int status_[2] = {-1, -1};
};

TEST_F(Get3GPP2InfoTest, ClosedClientPublishesThePlaceholdersInFailureOrder) {
    ResetVendorQmiForTest();
    SlogCapture capture;
    EXPECT_EQ(Run(),
              "mob_fw::No data available!\n"
              "pesn::No data available!\n"
              "mob_p_rev::No data available!\n"
              "sci::No data available!\n"
              "model::No data available!\n");
    EXPECT_TRUE(capture.contains(
        Line("Get3GPP2Info", "Error in sending & processing get_misc_info_qmi: Error = %d", 22)));
}

TEST_F(Get3GPP2InfoTest, ModemValuesInSuccessOrder) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Run(),
              "pesn::80A1B2C3\n"
              "mob_fw::1.0.4\n"
              "mob_p_rev:n:6\n"
              "sci:n:2\n"
              "model::TAVORA-X1\n");
}

TEST_F(Get3GPP2InfoTest, MissingSciAndFullWidthPesn) {
    Modem modem(
        R"({"misc_info": {"pesn": "0123456789ABCDEF", "sci": null, "mob_fw": "12345678"}})");
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Run(),
              "pesn::0123456789ABCDEF\n"
              "mob_fw::12345678\n"
              "mob_p_rev:n:6\n"
              "sci::No data available!\n"
              "model::TAVORA-X1\n");
}

TEST_F(Get3GPP2InfoTest, RawResponseWithZeroValuesGivesNoData) {
    // result | 10 00 00 | 11 01 00 00 | 12 01 00 00 | 13 00 00 | 14 00 00
    Modem modem(
        R"({"raw_response": {"0x14": "02040000000000 100000 11010000 12010000 130000 140000"}})");
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Run(),
              "pesn::No data available!\n"
              "mob_fw::No data available!\n"
              "mob_p_rev::No data available!\n"
              "sci::No data available!\n"
              "model::No data available!\n");
}

}  // namespace
