// The vendor client's life cycle, its requests and the system-event handler,
// against modemsim's QMI side in this process: the refusals, failures and
// odd events. The paths that work (ENS, misc information, RAT measurements,
// a modem reset, a late answer) are the control channel's process tests.
#include "qmi/vendor_client.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/qnx/slogf.h"
#include "qmi/reset_events.h"
#include "qmi/vendor_requests.h"
#include "testsupport/message_pair.h"
#include "testsupport/qmi_test_support.h"

namespace {

using qmi_test::Line;
using qmi_test::Modem;

int dummy_info = 1;

TEST(VendorClientLifeCycle, TwoInitializationsOpenOneClient) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    SlogCapture capture;
    radioTavoraInitializeQmi();
    qmi_client_type first = VendorQmiClient();
    int handle = QmiLibraryHandle();
    radioTavoraInitializeQmi();
    EXPECT_NE(first, 0u);
    EXPECT_EQ(VendorQmiClient(), first);
    EXPECT_EQ(QmiLibraryHandle(), handle);
    std::vector<std::string> expected = {
        Line("radioTavoraInitializeQmi", "QMI initialized"),
        Line("radio_tavora_vendor_qmi_client_init", "starting QMI port initialization"),
        Line("radioTavoraInitializeQmi", "QMI initialized"),
        Line("radio_tavora_vendor_qmi_client_init",
             "ERROR: qmi message library already initialized"),
    };
    EXPECT_EQ(capture.texts(), expected);
}

TEST(VendorClientLifeCycle, CloseReleasesTheClientAndLogsTheClearedHandle) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    ASSERT_NE(VendorQmiClient(), 0u);
    SlogCapture capture;
    EXPECT_EQ(radio_tavora_vendor_qmi_client_close(), 0);
    EXPECT_EQ(VendorQmiClient(), 0u);
    EXPECT_EQ(capture.texts(), std::vector<std::string>{Line("radio_tavora_vendor_qmi_client_close",
                                                             "ERROR: QMI client %d released", 0)});
    EXPECT_EQ(radio_tavora_vendor_qmi_client_close(), 0);  // none left: nothing happens
}

TEST(VendorClientLifeCycle, LibraryStartFailureIsRetriedNextTime) {
    ResetVendorQmiForTest();
    setenv("QMI_DEVICE", "tcp:nowhere", 1);
    SlogCapture capture;
    radioTavoraInitializeQmi();
    radioTavoraInitializeQmi();
    unsetenv("QMI_DEVICE");
    int failed = QMI_CLIENT_INTERNAL_ERR;
    std::vector<std::string> once = {
        Line("radio_tavora_qmi_init", "ERROR: qmi_init() failed (err=%d)", failed),
        Line("radioTavoraInitializeQmi", "QMI not initialized, status = %d", 22)};
    std::vector<std::string> expected = once;
    expected.insert(expected.end(), once.begin(), once.end());
    EXPECT_EQ(capture.texts(), expected);
    EXPECT_LT(QmiLibraryHandle(), 0);
}

TEST(VendorClientLifeCycle, NoModemMeansServiceListFailure) {
    rt::test::TempDir dir;
    setenv("QMI_DEVICE", ("unix:" + dir.file("none.sock")).c_str(), 1);
    SlogCapture capture;
    radioTavoraInitializeQmi();
    EXPECT_TRUE(capture.contains(Line("radio_tavora_vendor_qmi_client_init",
                                      "ERROR: qmi_client_get_service_list returns %d",
                                      QMI_CLIENT_TRANSPORT_ERR)));
    EXPECT_TRUE(capture.contains(
        Line("radioTavoraInitializeQmi", "vendor QMI client not initialized: status = %d", 22)));
    ResetVendorQmiForTest();
    unsetenv("QMI_DEVICE");
}

struct ClosedCase {
    const char* name;
    const char* line;
    int (*call)();
};

TEST(VendorRequestsWithoutClient, EachFailsWith22AndItsLine) {
    ResetVendorQmiForTest();
    static uint8_t state[kStateResponseSize];
    static RatMeasInfoResponse rat;
    static MiscInfo misc;
    const ClosedCase cases[] = {
        {"radio_tavora_vendor_set_ens", "ERROR: Tavora: QMI port not initialized",
         [] { return radio_tavora_vendor_set_ens(0, 5); }},
        {"radio_tavora_vendor_set_evdo_1x_ims_state", "ERROR: Tavora: QMI port not initialized",
         [] { return radio_tavora_vendor_set_evdo_1x_ims_state(state, kQmiMsgSetEvdoState, 1); }},
        {"radio_tavora_vendor_get_evdo_1x_ims_state", "ERROR: Tavora: QMI port not initialized",
         [] { return radio_tavora_vendor_get_evdo_1x_ims_state(state, kQmiMsgGet1xState); }},
        {"radio_tavora_vendor_rat_meas_info", "ERROR: QMI port not initialized",
         [] { return radio_tavora_vendor_rat_meas_info(&rat, kRatTypeUmts); }},
        {"radio_tavora_vendor_misc_info", "ERROR: QMI port not initialized",
         [] { return radio_tavora_vendor_misc_info(&misc); }},
    };
    for (const ClosedCase& c : cases) {
        SlogCapture capture;
        std::memset(&rat, 0xAA, sizeof rat);
        std::memset(&misc, 0xAA, sizeof misc);
        EXPECT_EQ(c.call(), 22) << c.name;
        EXPECT_EQ(capture.texts(), std::vector<std::string>{Line(c.name, c.line)}) << c.name;
    }
    // The ENS request did not record the fd, the RAT buffer is all zero.
    EXPECT_EQ(ModemStateFd(), -1);
    RatMeasInfoResponse zero = {};
    EXPECT_EQ(radio_tavora_vendor_rat_meas_info(&rat, kRatTypeUmts), 22);
    EXPECT_EQ(std::memcmp(&rat, &zero, sizeof rat), 0);
    // A failed misc request leaves its record all zero too.
    MiscInfo zero_misc = {};
    std::memset(&misc, 0xAA, sizeof misc);
    EXPECT_EQ(radio_tavora_vendor_misc_info(&misc), 22);
    EXPECT_EQ(std::memcmp(&misc, &zero_misc, sizeof misc), 0);
}

TEST(VendorRequestsWithoutClient, NullMiscRecordIsRefused) {
    SlogCapture capture;
    EXPECT_EQ(radio_tavora_vendor_misc_info(nullptr), 22);
    EXPECT_TRUE(capture.contains(
        Line("radio_tavora_vendor_misc_info",
             "ERROR: Error in requesting for misc_info by application: NULL buf-pointer!")));
}

TEST(VendorRequests, StateRequestsWork) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    uint8_t response[kStateResponseSize] = {};
    EXPECT_EQ(radio_tavora_vendor_set_evdo_1x_ims_state(response, kQmiMsgSet1xState, 0), 0);
    EXPECT_EQ(radio_tavora_vendor_get_evdo_1x_ims_state(response, kQmiMsgGet1xState), 0);
    // result TLV, then 01 01 00 <state>: the 1x state just set.
    EXPECT_EQ(response[7], 0x01);
    EXPECT_EQ(response[10], 0x00);
}

// A request the modem refuses fails with 22 and logs the modem's error in
// that request's own line.
TEST(VendorRequests, RefusalsLogTheModemsError) {
    struct Case {
        const char* refuse;
        int (*call)();
        std::vector<std::string> lines;
    };
    static uint8_t state[kStateResponseSize];
    const char* ens = "radio_tavora_vendor_set_ens";
    const char* set_state = "radio_tavora_vendor_set_evdo_1x_ims_state";
    const char* get_state = "radio_tavora_vendor_get_evdo_1x_ims_state";
    const Case cases[] = {
        {R"({"refuse": {"0x1f": 48}})",
         [] { return radio_tavora_vendor_set_ens(0, 7); },
         {Line(ens, "ENS value sent as part of QMI is %x", 0),
          Line(ens, "ERROR: Tavora: %d QMI response has a Error = %d", 31, 48)}},
        {R"({"refuse": {"0x18": 3}})",
         [] { return radio_tavora_vendor_set_evdo_1x_ims_state(state, kQmiMsgSetEvdoState, 1); },
         {Line(set_state, "ERROR: Tavora: %ld STATE QMI response has a Error = %d", 24L, 3)}},
        {R"({"refuse": {"21": 9}})",
         [] { return radio_tavora_vendor_get_evdo_1x_ims_state(state, kQmiMsgGet1xState); },
         {Line(get_state, "ERROR: Tavora: %ld response has a Error = %d", 21L, 9)}},
    };
    for (const Case& c : cases) {
        Modem modem(c.refuse);
        ASSERT_TRUE(modem.started()) << modem.error();
        radioTavoraInitializeQmi();
        SlogCapture capture;
        EXPECT_EQ(c.call(), 22) << c.refuse;
        EXPECT_EQ(capture.texts(), c.lines) << c.refuse;
    }
}

TEST(ResetEvents, NullEventInfoOnlyLogsAndKeepsTheClient) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    rt::test::MessagePair status;  // diag/status_data: what the handler writes
    radioTavoraInitializeQmi();
    ASSERT_EQ(radio_tavora_vendor_set_ens(0, status.ours), 0);
    qmi_client_type client = VendorQmiClient();
    SlogCapture capture;
    radio_tavora_reset_event_rx_hdlr(QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND, nullptr, nullptr);
    EXPECT_EQ(VendorQmiClient(), client);
    EXPECT_EQ(capture.texts(), std::vector<std::string>{Line("radio_tavora_reset_event_rx_hdlr",
                                                             "QMI SYS null event info received")});
    EXPECT_TRUE(status.Drain(100).empty());
}

// Sync and unknown events, and in-service before any ENS request recorded
// the status descriptor, only log.
TEST(ResetEvents, SyncUnknownAndEarlyInServiceEventsOnlyLog) {
    rt::test::MessagePair status;
    SetModemStateFd(status.ours);
    SlogCapture capture;
    radio_tavora_reset_event_rx_hdlr(QMI_SYS_EVENT_SYNC_IND, &dummy_info, nullptr);
    radio_tavora_reset_event_rx_hdlr(7, &dummy_info, nullptr);
    SetModemStateFd(-1);
    radio_tavora_reset_event_rx_hdlr(QMI_SYS_EVENT_MODEM_IN_SERVICE_IND, &dummy_info, nullptr);
    const char* name = "radio_tavora_reset_event_rx_hdlr";
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{Line(name, "QMI_SYS_EVENT_SYNC_IND"),
                                        Line(name, " Unknown system event %d", 7),
                                        Line(name, "QMI_SYS_EVENT_MODEM_IN_SERVICE_IND")}));
    EXPECT_TRUE(status.Drain(100).empty());
}

TEST(SetEnsValue, OnlyOneAndZeroSendAnything) {
    ResetVendorQmiForTest();
    SlogCapture capture;
    radioTavoraCleanQmi();
    SetENSValue("2");
    SetENSValue("-1");
    EXPECT_TRUE(capture.texts().empty());
    EXPECT_LT(QmiLibraryHandle(), 0);
}

TEST(SetEnsValue, TextWithoutDigitsSendsEnsOne) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    SlogCapture capture;
    SetENSValue("on");
    EXPECT_TRUE(capture.contains(
        Line("radio_tavora_vendor_set_ens", "ENS value sent as part of QMI is %x", 1)));
    capture.clear();
    SetENSValue("1");
    EXPECT_TRUE(capture.contains(
        Line("radio_tavora_vendor_set_ens", "ENS value sent as part of QMI is %x", 0)));
}

}  // namespace
