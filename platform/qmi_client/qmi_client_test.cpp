// The library against modemsim's QMI side, in this process: real sockets,
// real QMUX, the simulator's scenario deciding the answers.
#include "platform/qmi_client/qmi_client.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "testsupport/child_process.h"
#include "tools/modemsim/qmi_side.h"
#include "tools/modemsim/scenario.h"

namespace {

using Bytes = std::vector<uint8_t>;

const qmi_idl_service_object kVendorObject = {2, 1, 0xE3, 0x14, {0, 0, 0}, {}, nullptr};

// System events as the handler saw them.
struct EventLog {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> events;
    bool null_info = false;

    static void Handler(int event, void* info, void* user_data) {
        auto* log = static_cast<EventLog*>(user_data);
        std::lock_guard<std::mutex> hold(log->mutex);
        log->events.push_back(event);
        if (info == nullptr) log->null_info = true;
        log->changed.notify_all();
    }
    // Waits (bounded, generously) until `count` events arrived.
    std::vector<int> WaitFor(size_t count) {
        std::unique_lock<std::mutex> hold(mutex);
        changed.wait_for(hold, std::chrono::seconds(10), [&] { return events.size() >= count; });
        return events;
    }
};

class QmiClientTest : public testing::Test {
  protected:
    void StartModem(const std::string& qmi_patch = "{}", bool on_pty = false) {
        nlohmann::json scenario = modemsim::DefaultScenario();
        scenario["qmi"].merge_patch(nlohmann::json::parse(qmi_patch));
        std::string device = dir_.file(on_pty ? "qmi.tty" : "qmi.sock");
        setenv("QMI_DEVICE", (on_pty ? device : "unix:" + device).c_str(), 1);
        modem_ = std::make_unique<modemsim::QmiSide>((on_pty ? "pty:" : "unix:") + device,
                                                     scenario["qmi"]);
        std::string error;
        ASSERT_TRUE(modem_->Start(&error)) << error;
    }
    void OpenClient() {
        handle_ = qmi_init(&EventLog::Handler, &events_);
        ASSERT_GE(handle_, 0);
        qmi_service_info info[1] = {};
        unsigned entries = 1, services = 1;
        ASSERT_EQ(qmi_client_get_service_list(&kVendorObject, info, &entries, &services), 0);
        EXPECT_EQ(info[0].service_id, 0xE3u);
        ASSERT_EQ(qmi_client_init(info, &kVendorObject, nullptr, nullptr, nullptr, &client_), 0);
        EXPECT_NE(client_, 0u);
    }
    void TearDown() override {
        if (handle_ >= 0) qmi_release(handle_);
        if (modem_) modem_->Stop();
        unsetenv("QMI_DEVICE");
    }
    // A raw request: 47 bytes of room, then the TLVs.
    static Bytes Request(const Bytes& tlvs) {
        Bytes request(kQmiRawRequestHeaderLen, 0);
        request.insert(request.end(), tlvs.begin(), tlvs.end());
        return request;
    }
    int Send(unsigned msg_id, const Bytes& tlvs, Bytes* response, unsigned* received,
             unsigned timeout_ms = 2000) {
        Bytes request = Request(tlvs);
        return qmi_client_send_raw_msg_sync(
            client_, msg_id, request.data(), static_cast<unsigned>(request.size()),
            response->data(), static_cast<unsigned>(response->size()), received, timeout_ms);
    }

    // ENS byte 0 (TLV 01 01 00 00) answered with the result TLV alone.
    void ExpectEnsRoundTrip() {
        Bytes response(7, 0xEE);
        unsigned received = 0;
        ASSERT_EQ(Send(0x1F, {0x01, 0x01, 0x00, 0x00}, &response, &received), 0);
        EXPECT_EQ(received, 7u);
        EXPECT_EQ(response, (Bytes{0x02, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00}));
    }

    rt::test::TempDir dir_;
    std::unique_ptr<modemsim::QmiSide> modem_;
    EventLog events_;
    int handle_ = -1;
    qmi_client_type client_ = 0;
};

TEST_F(QmiClientTest, ResultTlvIsMovedFirst) {
    // The modem sends 10 01 00 41 before the result TLV.
    StartModem(R"({"raw_response": {"0x30": "10 01 00 41 02 04 00 00 00 00 00"}})");
    OpenClient();
    Bytes response(16, 0);
    unsigned received = 0;
    ASSERT_EQ(Send(0x30, {}, &response, &received), 0);
    ASSERT_EQ(received, 11u);
    EXPECT_EQ(Bytes(response.begin(), response.begin() + 11),
              (Bytes{0x02, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x01, 0x00, 0x41}));
}

TEST_F(QmiClientTest, ResponseLongerThanCapacityIsCutNeverOverrun) {
    StartModem();
    OpenClient();
    // Ten bytes of capacity inside a larger buffer whose tail must stay.
    Bytes buffer(32, 0xEE);
    Bytes request = Request({});
    unsigned received = 0;
    ASSERT_EQ(qmi_client_send_raw_msg_sync(client_, 0x14, request.data(),
                                           static_cast<unsigned>(request.size()), buffer.data(), 10,
                                           &received, 2000),
              0);
    EXPECT_EQ(received, 10u);
    // Result TLV, then the pesn TLV's header: 10 08 00.
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 10),
              (Bytes{0x02, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x08, 0x00}));
    for (size_t i = 10; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], 0xEE) << i;
}

TEST_F(QmiClientTest, SameMessageTimedOutThenAskedAgainGetsItsOwnAnswer) {
    // Every 0x31 is answered after 300 ms: first with marker aa, then bb.
    StartModem(R"({"delay_ms": {"0x31": 300},
                   "raw_response": {"0x31": ["02 04 00 00 00 00 00 31 01 00 aa",
                                             "02 04 00 00 00 00 00 31 01 00 bb"]}})");
    OpenClient();
    Bytes response(11, 0);
    EXPECT_EQ(Send(0x31, {}, &response, nullptr, 20), QMI_CLIENT_TIMEOUT_ERR);
    // Same message id, next transaction: the first answer (aa) arrives while
    // this request waits and must not be taken for its own (bb).
    ASSERT_EQ(Send(0x31, {}, &response, nullptr, 5000), 0);
    EXPECT_EQ(response[10], 0xbb);
}

TEST_F(QmiClientTest, TransportLossGivesOutOfServiceThenInService) {
    StartModem(R"({"reset_down_ms": 200})");
    OpenClient();
    modem_->Reset();
    std::vector<int> seen = events_.WaitFor(2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND);
    EXPECT_EQ(seen[1], QMI_SYS_EVENT_MODEM_IN_SERVICE_IND);
    EXPECT_FALSE(events_.null_info);
    // The old client died with the transport; a new one works.
    Bytes response(7, 0);
    EXPECT_EQ(Send(0x1F, {0x01, 0x01, 0x00, 0x00}, &response, nullptr), QMI_CLIENT_TRANSPORT_ERR);
    qmi_service_info info[1] = {};
    unsigned entries = 1, services = 1;
    ASSERT_EQ(qmi_client_get_service_list(&kVendorObject, info, &entries, &services), 0);
    ASSERT_EQ(qmi_client_init(info, &kVendorObject, nullptr, nullptr, nullptr, &client_), 0);
    EXPECT_EQ(Send(0x1F, {0x01, 0x01, 0x00, 0x00}, &response, nullptr), 0);
}

TEST_F(QmiClientTest, ReleasedClientIsUnknown) {
    StartModem();
    OpenClient();
    EXPECT_EQ(qmi_client_release(client_), 0);
    Bytes response(7, 0);
    EXPECT_EQ(Send(0x1F, {0x01, 0x01, 0x00, 0x00}, &response, nullptr), QMI_CLIENT_INVALID_HANDLE);
    EXPECT_EQ(qmi_client_release(client_), QMI_CLIENT_INVALID_HANDLE);
}

TEST_F(QmiClientTest, ServiceMissingFromTheModemIsNotFound) {
    StartModem(R"({"services": [{"service": 0, "major": 1, "minor": 5}]})");
    handle_ = qmi_init(&EventLog::Handler, &events_);
    ASSERT_GE(handle_, 0);
    qmi_service_info info[1] = {};
    unsigned entries = 1, services = 1;
    EXPECT_EQ(qmi_client_get_service_list(&kVendorObject, info, &entries, &services),
              QMI_CLIENT_SERVICE_NOT_FOUND);
    EXPECT_EQ(services, 0u);
}

TEST_F(QmiClientTest, SecondInitWhileRunningIsRefused) {
    StartModem();
    handle_ = qmi_init(&EventLog::Handler, &events_);
    ASSERT_GE(handle_, 0);
    EXPECT_EQ(qmi_init(&EventLog::Handler, &events_), QMI_CLIENT_ALREADY_STARTED);
}

TEST_F(QmiClientTest, RequestShorterThanItsHeaderRoomIsRejected) {
    StartModem();
    OpenClient();
    Bytes request(46, 0);
    Bytes response(7, 0);
    EXPECT_EQ(qmi_client_send_raw_msg_sync(client_, 0x1F, request.data(), 46, response.data(), 7,
                                           nullptr, 2000),
              QMI_CLIENT_INTERNAL_ERR);
}

// A pseudo-terminal that the library opens as a QMI character device.
TEST_F(QmiClientTest, CharacterDeviceCarriesTheSameExchange) {
    StartModem("{}", /*on_pty=*/true);
    OpenClient();
    ExpectEnsRoundTrip();
}

TEST(QmiClientEndpoint, UnknownEndpointFormIsRefusedAtInit) {
    for (const char* device : {"tcp:localhost:1", "qmi-proxy:", "qmi-proxy:dev/cdc-wdm0"}) {
        setenv("QMI_DEVICE", device, 1);
        EXPECT_LT(qmi_init(nullptr, nullptr), 0) << device;
    }
    unsetenv("QMI_DEVICE");
}

}  // namespace
