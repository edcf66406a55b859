// Two devices on one real mosquitto: two stacks of ppsd, modemsim and
// radio_tavora, each with `fieldtest publish`, and one `fieldtest serve
// --mqtt` recording both. Their samples arrive with their names, a killed
// publisher is "offline" to a subscriber that comes afterwards, and a
// setting reaches only the device it names, and only when its publisher
// accepts settings; a restarted broker is connected to again and samples
// flow on.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/eventually.h"
#include "testsupport/modemsim_process.h"
#include "testsupport/mosquitto_process.h"

namespace {

using rt::test::ChildProcess;
using rt::test::Eventually;

// One device: its own modem world, broker and daemon, and its publisher.
struct Device {
    Device(const std::string& name, const std::string& scenario, const std::string& mqtt,
           bool accept_settings)
        : world(scenario), name(name) {
        if (!world.started()) return;
        std::vector<std::string> argv{rt::test::BinPath("fieldtest"),
                                      "publish",
                                      "--mqtt",
                                      mqtt,
                                      "--device",
                                      name,
                                      "--interval",
                                      "0.5",
                                      "--reports",
                                      "radiostats,lteopinfo,tchtxpwr"};
        if (accept_settings) argv.push_back("--accept-settings");
        publisher = std::make_unique<ChildProcess>(
            argv, std::vector<std::string>{world.daemon().broker().env()});
    }
    // diag/config as the device's own broker holds it.
    std::string Config() {
        ::setenv("PPS_SOCKET", world.daemon().broker().socket().c_str(), 1);
        return world.daemon().ReadObject(rt::test::kConfigObject);
    }
    rt::test::ModemAndDaemon world;
    std::string name;
    std::unique_ptr<ChildProcess> publisher;
};

// Every recording file in `dir`, joined.
std::string Recorded(const std::string& dir) {
    std::string text;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec))
        text += rt::test::ReadFile(entry.path());
    return text;
}

TEST(MqttFleetProcess, TwoDevicesOnOneBrokerAndOneScreen) {
    if (!rt::test::MosquittoProcess::Installed())
        GTEST_SKIP() << "mosquitto and mosquitto-clients are not installed (scripts/test.sh "
                        "installs them)";
    rt::test::MosquittoProcess broker;
    ASSERT_TRUE(broker.ready()) << broker.process().Stderr();
    Device a("car-a", R"({"lte": {"period_ms": 200}})", broker.address(), false);
    Device b("car-b", R"({"lte": {"period_ms": 200, "drift": {"rsrp": 0}}})", broker.address(),
             true);
    ASSERT_TRUE(a.publisher && b.publisher) << a.world.Errors() << b.world.Errors();

    rt::test::TempDir dir;
    int port = rt::test::FreeLoopbackPort();
    ChildProcess serve({rt::test::BinPath("fieldtest"), "serve", "--mqtt", broker.address(),
                        "--listen", "127.0.0.1:" + std::to_string(port), "--interval", "0.5",
                        "--record", dir.file("rec")});
    ASSERT_TRUE(serve.WaitForStdout("the field-test screen is on")) << serve.Stderr();

    // Both devices' samples, recorded with their names.
    EXPECT_TRUE(Eventually([&] {
        std::string text = Recorded(dir.file("rec"));
        return text.find(",car-a,radiostats,") != std::string::npos &&
               text.find(",car-b,radiostats,") != std::string::npos;
    })) << serve.Stderr()
        << a.publisher->Stderr() << b.publisher->Stderr();
    EXPECT_EQ(Recorded(dir.file("rec")).find(",modem0,"), std::string::npos);

    // A setting: ignored by a publisher without --accept-settings, applied
    // by the one with it, after the checks `fieldtest set` makes.
    ASSERT_TRUE(broker.Send("radio_tavora/car-a/set", "diaglogmask=1\nims_enable=1"));
    ASSERT_TRUE(broker.Send("radio_tavora/car-b/set", "diaglogmask=7"));
    ASSERT_TRUE(broker.Send("radio_tavora/car-b/set", "diaglogmask=1"));
    EXPECT_TRUE(a.publisher->WaitForStderr("ignored settings sent to car-a"));
    EXPECT_TRUE(b.publisher->WaitForStderr("refused settings"));
    EXPECT_TRUE(b.publisher->WaitForStderr("applied diaglogmask=1")) << b.publisher->Stderr();
    EXPECT_NE(b.Config().find("diaglogmask::1"), std::string::npos) << b.Config();
    EXPECT_EQ(a.Config().find("diaglogmask::1"), std::string::npos) << a.Config();
    // car-b, which does accept settings, took none of those meant for car-a.
    EXPECT_EQ(b.Config().find("ims_enable"), std::string::npos) << b.Config();
    // With its log mask on, car-b's modem logs LTE: its RSRP reaches the recording.
    EXPECT_TRUE(Eventually([&] {
        return Recorded(dir.file("rec")).find(",car-b,lteopinfo,lte_rsrp,") != std::string::npos;
    }));
    // The page hears the device's new configuration through the broker.
    httplib::Client page("127.0.0.1", port);
    auto device_json = [&](const std::string& name) {
        auto res = page.Get("/api/devices");
        nlohmann::json devices = nlohmann::json::parse(res ? res->body : "[]", nullptr, false);
        for (const auto& d : devices)
            if (d.value("device", "") == name) return d;
        return nlohmann::json::object();
    };
    EXPECT_TRUE(Eventually([&] {
        auto d = device_json("car-b");
        // As the object holds it: a number or its text.
        auto mask = d.contains("config") ? d["config"].value("diaglogmask", nlohmann::json())
                                         : nlohmann::json();
        return mask == 1 || mask == "1";
    }));

    // A broker that restarts: the publishers and the screen connect again
    // by themselves, and what is published afterwards arrives (QoS 1).
    auto rows_of_b = [&] {
        std::string text = Recorded(dir.file("rec"));
        size_t n = 0;
        for (size_t at = 0; (at = text.find(",car-b,radiostats,", at)) != std::string::npos; ++at)
            ++n;
        return n;
    };
    ASSERT_TRUE(broker.Restart()) << broker.process().Stderr();
    // The new broker keeps nothing: a retained status is the publisher's,
    // sent again once it is back.
    EXPECT_TRUE(Eventually(
        [&] { return broker.FirstMessage("radio_tavora/car-b/status", 1) == "online"; }));
    const size_t before_restart = rows_of_b();
    EXPECT_TRUE(Eventually([&] { return rows_of_b() > before_restart; })) << serve.Stderr();

    // A publisher that vanishes: the broker's last will says "offline",
    // to the screen and to a subscriber that arrives only now.
    EXPECT_EQ(broker.FirstMessage("radio_tavora/car-a/status"), "online");
    a.publisher->Signal(SIGKILL);
    a.publisher->Wait();
    EXPECT_TRUE(
        Eventually([&] { return broker.FirstMessage("radio_tavora/car-a/status") == "offline"; }));
    EXPECT_TRUE(Eventually([&] { return device_json("car-a").value("status", "") == "offline"; }));
    EXPECT_EQ(device_json("car-b").value("status", ""), "online");

    // The recording is whole once serve stops.
    serve.Signal(SIGTERM);
    EXPECT_EQ(serve.Wait(), 0) << serve.Stderr();
    EXPECT_NE(serve.Stderr().find("samples recorded in"), std::string::npos);
}

}  // namespace
