// Two devices on one real mosquitto: two stacks of ppsd, modemsim and
// radio_tavora, each with `fieldtest publish`, and one `fieldtest serve
// --mqtt` recording both. The publishers reach a broker that starts after
// them; their samples arrive with their names; a setting reaches only the
// device it names, and only when its publisher accepts settings; numbered
// samples that skip some are counted as missed; a broker restarted while
// the screen is away loses none of the samples published meanwhile; a hung
// publisher is "offline" within its keep-alive, to a subscriber that comes
// afterwards too.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
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
           const std::string& option, const std::string& value = "")
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
        argv.push_back(option);
        if (!value.empty()) argv.push_back(value);
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
    // The publishers start before the broker, and reach it once it runs.
    rt::test::MosquittoProcess broker(false);
    constexpr int kKeepalive = 5;  // libmosquitto's least
    Device a("car-a", R"({"lte": {"period_ms": 200}})", broker.address(), "--keepalive",
             std::to_string(kKeepalive));
    Device b("car-b", R"({"lte": {"period_ms": 200, "drift": {"rsrp": 0}}})", broker.address(),
             "--accept-settings");
    ASSERT_TRUE(a.publisher && b.publisher) << a.world.Errors() << b.world.Errors();
    ASSERT_TRUE(broker.Start()) << broker.process().Stderr();

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

    // Numbered samples: 2 and 3 skipped, 2 heard late, 4 again (a copy),
    // then a restarted publisher counting from 1: one sample missed.
    for (auto [run, seq] : {std::pair{7, 1}, {7, 4}, {7, 2}, {7, 4}, {8, 1}})
        ASSERT_TRUE(broker.Send(
            "radio_tavora/car-x/radiostats",
            nlohmann::json{
                {"time", 1}, {"values", nlohmann::json::object()}, {"run", run}, {"seq", seq}}
                .dump()));
    EXPECT_TRUE(Eventually([&] {
        auto d = device_json("car-x");
        return d.value("seq", 0) == 1 && d.value("missed", -1) == 1;
    })) << device_json("car-x");
    EXPECT_TRUE(serve.WaitForStderr("car-x: 2 samples missed (seq 4 came next)"));

    // A broker that restarts while the screen is frozen: car-b keeps what
    // it publishes while the broker is away and sends it once back; the
    // broker keeps the screen's session on disk and queues car-b's samples
    // for it; the screen resumes its session and misses none (QoS 1).
    auto rows_of_b = [&] {
        std::string text = Recorded(dir.file("rec"));
        size_t n = 0;
        for (size_t at = 0; (at = text.find(",car-b,radiostats,", at)) != std::string::npos; ++at)
            ++n;
        return n;
    };
    auto seq_in = [](const std::string& text) {
        auto sample = nlohmann::json::parse(text, nullptr, false);
        return sample.is_object() ? sample.value("seq", 0LL) : 0LL;
    };
    // A publisher's connection line after the broker's restart, "" until then.
    auto reconnection = [](const ChildProcess& publisher) {
        std::string text = publisher.Stderr(), line = "connected to MQTT broker";
        size_t at = text.find(line, text.find(line) + 1);
        return at == std::string::npos ? "" : text.substr(at, text.find('\n', at) - at);
    };
    const long long seq_before = device_json("car-b").value("seq", 0LL);
    const size_t rows_before = rows_of_b();
    ASSERT_GT(seq_before, 0);
    serve.Signal(SIGSTOP);
    ASSERT_TRUE(broker.Restart()) << broker.process().Stderr();
    EXPECT_TRUE(Eventually([&] {
        return reconnection(*b.publisher).find("messages kept meanwhile are sent now") !=
               std::string::npos;
    })) << b.publisher->Stderr();
    long long published = 0;  // a sample car-b published two rounds after the freeze
    EXPECT_TRUE(Eventually([&] {
        published = seq_in(broker.FirstMessage("radio_tavora/car-b/radiostats", 1));
        return published > seq_before + 6;
    }));
    serve.Signal(SIGCONT);
    EXPECT_TRUE(serve.WaitForStderr("(session resumed)")) << serve.Stderr();
    EXPECT_TRUE(Eventually([&] { return device_json("car-b").value("seq", 0LL) >= published; }))
        << serve.Stderr();
    EXPECT_EQ(device_json("car-b").value("missed", -1), 0) << serve.Stderr();
    EXPECT_TRUE(Eventually([&] { return rows_of_b() > rows_before; }));  // flushed in 0.5 s

    // A publisher that hangs with its connection open: the broker gives it
    // up after 1.5 times its keep-alive, and its last will says "offline"
    // to the screen and to a subscriber that arrives only now.
    EXPECT_TRUE(Eventually([&] { return !reconnection(*a.publisher).empty(); }));
    a.publisher->Signal(SIGSTOP);
    auto stopped = std::chrono::steady_clock::now();
    EXPECT_TRUE(Eventually([&] { return device_json("car-a").value("status", "") == "offline"; },
                           (2 * kKeepalive + 3) * 1000));
    EXPECT_GE(std::chrono::steady_clock::now() - stopped, std::chrono::seconds(kKeepalive));
    EXPECT_EQ(broker.FirstMessage("radio_tavora/car-a/status"), "offline");
    EXPECT_EQ(device_json("car-b").value("status", ""), "online");
    a.publisher->Signal(SIGKILL);
    a.publisher->Wait();

    // The recording is whole once serve stops.
    serve.Signal(SIGTERM);
    EXPECT_EQ(serve.Wait(), 0) << serve.Stderr();
    EXPECT_NE(serve.Stderr().find("samples recorded in"), std::string::npos);
}

}  // namespace
