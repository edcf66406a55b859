// devsim as a real process on a real broker, asked as the daemon and a
// user with ppsctl would ask it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "testsupport/child_process.h"

namespace {

using rt::test::BinPath;
using rt::test::ChildProcess;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kOmadm = "/pps/services/omadm/radio/control";
constexpr const char* kRadioControl = "/pps/services/radioctrl/modem0/control";
constexpr const char* kConnectionControl = "/pps/services/cds/vesta/control";
constexpr const char* kStatusPersistent = "/pps/services/radioctrl/modem0/status_persistent";
constexpr const char* kDeviceInfo = "/pps/system/nvram/deviceinfo";
constexpr const char* kConnectionStatus = "/pps/services/cds/vesta/status";

std::string ReadObject(const std::string& path) {
    int fd = pps_open(path.c_str(), O_RDONLY);
    if (fd < 0) return "";
    pollfd entry{fd, POLLIN, 0};
    std::string text;
    if (::poll(&entry, 1, 1000) > 0) {
        char buffer[8192];
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) text.assign(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return text;
}

// Polls an object until it holds `needle` (or lacks it); bounded in time.
bool ObjectBecomes(const std::string& path, const std::string& needle, bool present = true) {
    return rt::test::Eventually(
        [&] { return (ReadObject(path).find(needle) != std::string::npos) == present; });
}

class DevsimProcessTest : public ::testing::Test {
  protected:
    // devsim with a scenario patch (JSON text; empty: the built-in scenario).
    void StartDevsim(const std::string& patch = "") {
        std::vector<std::string> argv{BinPath("devsim")};
        if (!patch.empty()) {
            WriteScenario(patch);
            argv.insert(argv.end(), {"--scenario", scenario_});
        }
        devsim_ = std::make_unique<ChildProcess>(argv, std::vector<std::string>{broker_.env()});
        ASSERT_TRUE(devsim_->WaitForStderr("devsim: ready")) << devsim_->Stderr();
    }
    void WriteScenario(const std::string& patch) { std::ofstream(scenario_) << patch; }

    // `ppsctl call PATH LINE...`: its exit status and standard output.
    std::pair<int, std::string> Call(const std::string& path, std::vector<std::string> lines) {
        std::vector<std::string> argv{BinPath("ppsctl"), "call", "--timeout", "3", path};
        argv.insert(argv.end(), lines.begin(), lines.end());
        ChildProcess ppsctl(argv, {broker_.env()});
        int status = ppsctl.Wait(10000);
        return {status, ppsctl.Stdout()};
    }

    rt::test::PpsBroker broker_;
    rt::test::TempDir dir_;
    std::string scenario_ = dir_.file("scenario.json");
    std::unique_ptr<ChildProcess> devsim_;
};

TEST_F(DevsimProcessTest, PublishesTheDefaultObjects) {
    StartDevsim();
    EXPECT_THAT(ReadObject(kDeviceInfo), HasSubstr("HardwareID::0x52c0f9e4\n"));
    EXPECT_THAT(ReadObject(kStatusPersistent),
                HasSubstr(R"(configure_rats_state:json:{"enabled_technologies":18})"));
    std::string status = ReadObject(kConnectionStatus);
    for (const char* pdn :
         {"carrier_ims", "carrier_admin", "internet", "carrier_apps", "tethering"})
        EXPECT_THAT(status, HasSubstr(std::string("\n") + pdn + ":json:{")) << pdn;
    std::string interface = ReadObject("/pps/services/networking/interfaces/rmnet2");
    EXPECT_THAT(interface, HasSubstr("@rmnet2\nconnected:b:true\nip_addresses:json:["));
    EXPECT_THAT(interface, HasSubstr("nameservers:json:[\"198.224.166.135\""));
}

TEST_F(DevsimProcessTest, AnswersLeafRequestsFromAShellAndLogsThem) {
    StartDevsim(R"({"omadm": {"errors": {"2/Timer": 1}}})");
    auto [status, reply] = Call(kOmadm, {"msg::get_leaf_node", "id::1",
                                         "dat::./ManagedObjects/ConnMO/LTE/APN/3/Setting/Name"});
    EXPECT_EQ(status, 0);
    EXPECT_THAT(reply,
                HasSubstr("res::get_leaf_node\nid::1\ndat:json:{\"value\":\"vzwinternet\"}"));
    EXPECT_TRUE(devsim_->WaitForStderr(
        "devsim: rx /pps/services/omadm/radio/control client 1: msg::get_leaf_node id::1 "
        "dat::./ManagedObjects/ConnMO/LTE/APN/3/Setting/Name"))
        << devsim_->Stderr();

    auto [err_status, err_reply] = Call(
        kOmadm,
        {"msg::get_leaf_node", "id::2", "dat::./ManagedObjects/ConnMO/LTE/APN/2/Setting/Timer"});
    EXPECT_EQ(err_status, 0);
    EXPECT_THAT(err_reply, HasSubstr("id::2\nerr:n:1"));
    EXPECT_THAT(err_reply, Not(HasSubstr("dat")));
}

TEST_F(DevsimProcessTest, ConfigureRatsReachesPersistentStatusAfterItsDelay) {
    StartDevsim(R"({"radio_control": {"delay_ms": 300, "refuse": [4]}})");
    auto begin = std::chrono::steady_clock::now();
    auto [status, reply] = Call(kRadioControl, {"msg::configure_rats", "id::3323",
                                                R"(dat:json:{"enabled_technologies":16})"});
    EXPECT_EQ(status, 0);
    EXPECT_THAT(reply, HasSubstr("res::configure_rats\nid::3323\n"));
    EXPECT_THAT(reply, Not(HasSubstr("err")));
    ASSERT_TRUE(ObjectBecomes(kStatusPersistent, R"({"enabled_technologies":16})"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));

    auto [refused_status, refused] =
        Call(kRadioControl,
             {"msg::configure_rats", "id::3324", R"(dat:json:{"enabled_technologies":4})"});
    EXPECT_EQ(refused_status, 0);
    // A refusal changes nothing later either (RadioControlTest pins that it
    // carries no change).
    EXPECT_THAT(refused, HasSubstr("id::3324\nerr:n:22"));
}

TEST_F(DevsimProcessTest, SetApnKeepsTheNewNameEverywhere) {
    StartDevsim();
    auto [set_status, set_reply] = Call(
        kConnectionControl,
        {"msg::set_apn_setting", "id::3323", R"(dat:json:{"name":"internet","APN":"bench.apn"})"});
    EXPECT_EQ(set_status, 0);
    EXPECT_THAT(set_reply, Not(HasSubstr("err")));
    auto [get_status, get_reply] = Call(kConnectionControl, {"msg::get_apn_setting", "id::3323",
                                                             R"(dat:json:{"name":"internet"})"});
    EXPECT_EQ(get_status, 0);
    EXPECT_THAT(get_reply, HasSubstr(R"(dat:json:{"APN":"bench.apn","name":"internet"})"));
    auto [leaf_status, leaf] = Call(
        kOmadm,
        {"msg::get_leaf_node", "id::4", "dat::./ManagedObjects/ConnMO/LTE/APN/3/Setting/Name"});
    EXPECT_THAT(leaf, HasSubstr(R"({"value":"bench.apn"})"));
    EXPECT_TRUE(ObjectBecomes(kConnectionStatus, R"("apn":"bench.apn")"));
}

TEST_F(DevsimProcessTest, RefusedSetKeepsTheOldNameAndDelayHoldsTheAnswer) {
    StartDevsim(R"({"connection_service": {"refuse": {"set_apn_setting": 5}, "delay_ms": 300}})");
    auto begin = std::chrono::steady_clock::now();
    auto [status, reply] = Call(kConnectionControl, {"msg::set_apn_setting", "id::3323",
                                                     R"(dat:json:{"name":"internet","APN":"x"})"});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_EQ(status, 0);
    EXPECT_THAT(reply, HasSubstr("err:n:5"));
    auto [get_status, get_reply] = Call(kConnectionControl, {"msg::get_apn_setting", "id::3323",
                                                             R"(dat:json:{"name":"internet"})"});
    EXPECT_THAT(get_reply, HasSubstr(R"("APN":"vzwinternet")"));
}

TEST_F(DevsimProcessTest, TimedEventsConnectAndDropPdns) {
    StartDevsim(R"({"events": [
        {"at_ms": 200, "say": "carrier_apps up",
         "patch": {"pdns": {"carrier_apps": {"connected": true}},
                   "interfaces": {"rmnet3": {"connected": true, "ip_addresses": ["10.9.9.9/30"]}}}},
        {"at_ms": 400, "patch": {"pdns": {"internet": {"connected": false}}}}]})");
    EXPECT_TRUE(ObjectBecomes(kConnectionStatus, R"("apn":"vzwapp","connected":true)"));
    EXPECT_TRUE(ObjectBecomes("/pps/services/networking/interfaces/rmnet3", "10.9.9.9/30"));
    EXPECT_TRUE(ObjectBecomes(kConnectionStatus,
                              R"(internet:json:{"apn":"vzwinternet","connected":false)"));
    EXPECT_TRUE(devsim_->WaitForStderr("devsim: event at 200 ms: carrier_apps up"));
}

TEST_F(DevsimProcessTest, HangupReloadsTheScenario) {
    StartDevsim(R"({"deviceinfo": {"HardwareID": "0x51c0f9e4"}})");
    ASSERT_TRUE(ObjectBecomes(kDeviceInfo, "HardwareID::0x51c0f9e4"));
    WriteScenario(R"({"deviceinfo": {"HardwareID": "0x53c0f9e4"}, "omadm": {"serve": false}})");
    ASSERT_TRUE(devsim_->Signal(SIGHUP));
    EXPECT_TRUE(ObjectBecomes(kDeviceInfo, "HardwareID::0x53c0f9e4"));
    ASSERT_TRUE(devsim_->WaitForStderr("no longer serving /pps/services/omadm/radio/control"));
    auto [status, reply] = Call(kOmadm, {"msg::get_leaf_node", "id::1", "dat::x"});
    EXPECT_EQ(status, 1);  // nobody serves it now

    WriteScenario(R"({"deviceinfo": null})");
    ASSERT_TRUE(devsim_->Signal(SIGHUP));
    EXPECT_TRUE(rt::test::Eventually([] { return !pps_exists(kDeviceInfo); }));

    WriteScenario("not json");
    ASSERT_TRUE(devsim_->Signal(SIGHUP));
    EXPECT_TRUE(devsim_->WaitForStderr("reload failed, keeping the old scenario"));
    EXPECT_TRUE(devsim_->Running());
}

TEST_F(DevsimProcessTest, TermAndIntEndCleanly) {
    for (int signal_number : {SIGTERM, SIGINT}) {
        StartDevsim();
        ASSERT_TRUE(devsim_->Signal(signal_number));
        EXPECT_EQ(devsim_->Wait(), 0) << devsim_->Stderr();
        EXPECT_THAT(devsim_->Stderr(), HasSubstr("devsim: stopped"));
    }
}

TEST_F(DevsimProcessTest, EndsWithStatusOneWhenTheBrokerGoes) {
    StartDevsim();
    broker_.Restart();
    EXPECT_EQ(devsim_->Wait(), 1);
    EXPECT_THAT(devsim_->Stderr(), HasSubstr("the broker closed it"));
}

// A bad file is a clear error and status 1, never a crash: nesting as deep
// as a file can go once overflowed the stack in the scenario's merge.
TEST_F(DevsimProcessTest, BadScenarioEndsWithStatusOne) {
    const std::pair<std::string, std::string> bad_files[] = {
        {"[1, 2]", "is not a JSON object"},
        {R"({"pdns": )", "is not a JSON object"},
        {R"({"events": )" + std::string(50000, '[') + std::string(50000, ']') + "}",
         "is nested deeper than 64 levels"},
    };
    for (const auto& [text, error] : bad_files) {
        WriteScenario(text);
        ChildProcess devsim({BinPath("devsim"), "--scenario", scenario_}, {broker_.env()});
        EXPECT_EQ(devsim.Wait(), 1) << text.substr(0, 40);
        EXPECT_THAT(devsim.Stderr(), HasSubstr(error));
    }
}

}  // namespace
