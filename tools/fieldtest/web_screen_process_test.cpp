// fieldtest serve against the real processes: ppsd, devsim, modemsim and
// radio_tavora. The HTTP endpoints, the settings with their checks, the
// event stream, and what the page is told when the daemon or the broker
// goes and comes back.
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/modemsim_process.h"

namespace {

using Json = nlohmann::json;
using rt::test::DaemonFixture;
using rt::test::DaemonOptions;

int FreePort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof addr;
    ::bind(fd, reinterpret_cast<sockaddr*>(&addr), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size);
    ::close(fd);
    return ntohs(addr.sin_port);
}

// `fieldtest serve` on a free port of the loopback, asking every half second.
class Serve {
  public:
    explicit Serve(const std::string& pps_env) : port_(FreePort()) {
        process_ = std::make_unique<rt::test::ChildProcess>(
            std::vector<std::string>{rt::test::BinPath("fieldtest"), "serve", "--listen",
                                     "127.0.0.1:" + std::to_string(port_), "--interval", "0.5",
                                     "--timeout", "2"},
            std::vector<std::string>{pps_env});
        ready_ = process_->WaitForStdout("the field-test screen is on");
    }
    bool ready() const { return ready_; }
    int port() const { return port_; }
    rt::test::ChildProcess& process() { return *process_; }
    httplib::Client Client() const {
        httplib::Client client("127.0.0.1", port_);
        client.set_read_timeout(10, 0);
        return client;
    }

    // The event stream until `done` says so for an event (its name and JSON
    // data), or about `timeout_s` seconds; false on time-out.
    template <class Done>
    bool Events(Done done, int timeout_s = 15) {
        httplib::Client client = Client();
        std::string buffer;
        bool found = false;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout_s);
        client.Get("/api/events", [&](const char* data, size_t size) {
            buffer.append(data, size);
            for (size_t end; (end = buffer.find("\n\n")) != std::string::npos;) {
                std::string message = buffer.substr(0, end);
                buffer.erase(0, end + 2);
                size_t event = message.find("event: "), data_at = message.find("\ndata: ");
                if (event != 0 || data_at == std::string::npos) continue;
                std::string name = message.substr(7, data_at - 7);
                Json json = Json::parse(message.substr(data_at + 7), nullptr, false);
                if (done(name, json)) found = true;
            }
            return !found && std::chrono::steady_clock::now() < deadline;
        });
        return found;
    }

  private:
    int port_;
    bool ready_ = false;
    std::unique_ptr<rt::test::ChildProcess> process_;
};

class WebScreenProcess : public testing::Test {
  protected:
    void StartAll(bool start_daemon = true) {
        modem_ = std::make_unique<rt::test::ModemsimProcess>(R"({"lte": {"period_ms": 100}})");
        ASSERT_TRUE(modem_->ready()) << modem_->process().Stderr();
        DaemonOptions options;
        options.env = modem_->DaemonEnv();
        options.start = start_daemon;
        daemon_ = std::make_unique<DaemonFixture>(options);
        if (start_daemon) {
            ASSERT_TRUE(daemon_->started()) << daemon_->daemon().Stderr();
        }
        serve_ = std::make_unique<Serve>(daemon_->broker().env());
        ASSERT_TRUE(serve_->ready()) << serve_->process().Stderr();
    }
    std::unique_ptr<rt::test::ModemsimProcess> modem_;
    std::unique_ptr<DaemonFixture> daemon_;
    std::unique_ptr<Serve> serve_;
};

TEST_F(WebScreenProcess, PageAndReportsAreServed) {
    StartAll();
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    httplib::Client client = serve_->Client();

    auto page = client.Get("/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 302);
    page = client.Get("/index.html");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->body.find("<script src=\"/screen.js\""), std::string::npos);
    auto script = client.Get("/screen.js");
    ASSERT_TRUE(script);
    EXPECT_NE(script->get_header_value("Content-Type").find("javascript"), std::string::npos);

    auto reports = client.Get("/api/reports");
    ASSERT_TRUE(reports);
    Json list = Json::parse(reports->body);
    ASSERT_GE(list.size(), 8u);
    EXPECT_EQ(list[4], (Json{{"name", "lteopinfo"}, {"object", "status_eutra"}}));

    // The serving cell of modemsim's LTE world, as numbers; absent values null.
    Json lte;
    rt::test::Eventually([&] {
        auto reply = client.Get("/api/report/lteopinfo");
        if (!reply || reply->status != 200) return false;
        lte = Json::parse(reply->body);
        return lte["values"]["lte_pci"] == 87;
    });
    EXPECT_EQ(lte["values"]["lte_pci"], 87) << lte.dump();
    EXPECT_EQ(lte["error"], "");
    bool rlc_table = false;
    for (const Json& item : lte["items"])
        if (item["type"] == "table" && item["name"] == "rlc_dl_drb_status") rlc_table = true;
    EXPECT_TRUE(rlc_table) << lte["items"].dump();

    auto missing = client.Get("/api/report/nosuch");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);

    // What was taken is in the recording.
    auto csv = client.Get("/api/recording.csv");
    ASSERT_TRUE(csv);
    EXPECT_EQ(csv->body.rfind("time,report,attribute,value\n", 0), 0u);
    EXPECT_NE(csv->body.find(",lteopinfo,lte_pci,87\n"), std::string::npos);
}

TEST_F(WebScreenProcess, SettingsAreCheckedThenWritten) {
    StartAll();
    httplib::Client client = serve_->Client();
    struct Case {
        std::string body;
        int status;
        std::string error_part;
    };
    const Case refused[] = {
        {R"({"name": "diaglogmask", "value": "2"})", 400, "diaglogmask is 0 or 1"},
        {R"({"name": "volume", "value": "1"})", 400, "unknown setting 'volume'"},
        {R"({"name": "diaglogmask"})", 400, "expected"},
        {R"(not json)", 400, "expected"},
        {R"({"name": "diaglogmask", "value": 1})", 400, "expected"},
    };
    for (const Case& c : refused) {
        auto reply = client.Post("/api/config", c.body, "application/json");
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, c.status) << c.body;
        EXPECT_NE(Json::parse(reply->body)["error"].get<std::string>().find(c.error_part),
                  std::string::npos)
            << reply->body;
    }
    EXPECT_EQ(daemon_->ReadObject(rt::test::kConfigObject).find("diaglogmask::2"),
              std::string::npos);

    auto reply =
        client.Post("/api/config", R"({"name": "diaglogmask", "value": "1"})", "application/json");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200) << reply->body;
    EXPECT_EQ(Json::parse(reply->body)["diaglogmask"], "1");
    EXPECT_NE(daemon_->ReadObject(rt::test::kConfigObject).find("diaglogmask::1"),
              std::string::npos);
    // The change reaches the daemon: the log mask goes on.
    EXPECT_TRUE(daemon_->daemon().WaitForStderr("LTE Log Config sent successfully"));

    // A change by another screen is pushed to the page.
    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::1"}));
    EXPECT_TRUE(serve_->Events([](const std::string& event, const Json& data) {
        return event == "config" && data.value("ens_value", "") == "1";
    }));

    // A body far past any setting is refused before it is read whole.
    auto huge = client.Post("/api/config", std::string(1 << 20, 'x'), "application/json");
    ASSERT_TRUE(huge);
    EXPECT_EQ(huge->status, 413);

    auto interval = client.Post("/api/interval", R"({"seconds": 0.1})", "application/json");
    ASSERT_TRUE(interval);
    EXPECT_EQ(interval->status, 400);
}

TEST_F(WebScreenProcess, EventStreamCarriesReportsAndHealth) {
    StartAll();
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    bool lte = false, health = false;
    EXPECT_TRUE(serve_->Events([&](const std::string& event, const Json& data) {
        if (event == "report" && data["report"] == "lteopinfo" && data["values"]["lte_pci"] == 87)
            lte = true;
        if (event == "health" && data["broker"] == true && data["daemon"] == true) health = true;
        return lte && health;
    }));
}

// The daemon comes and goes, then the broker: the page is told each time,
// and reports come back without anything done on the page's side.
TEST_F(WebScreenProcess, HealthFollowsTheDaemonAndTheBroker) {
    StartAll(/*start_daemon=*/false);
    auto daemon_is = [&](bool running) {
        return serve_->Events([&](const std::string& event, const Json& data) {
            return event == "health" && data["broker"] == true && data["daemon"] == running;
        });
    };
    EXPECT_TRUE(serve_->Events([](const std::string& event, const Json& data) {
        return event == "health" && data["daemon"] == false &&
               data["problem"].get<std::string>().find("radio_tavora is not running") !=
                   std::string::npos;
    }));
    ASSERT_TRUE(daemon_->Start()) << daemon_->daemon().Stderr();
    EXPECT_TRUE(daemon_is(true));
    EXPECT_EQ(daemon_->Stop(SIGTERM), 0);
    EXPECT_TRUE(daemon_is(false));

    daemon_->broker().Restart();
    ASSERT_TRUE(daemon_->Start()) << daemon_->daemon().Stderr();
    EXPECT_TRUE(daemon_is(true));
}

TEST(WebScreenServe, TakenPortIsAClearError) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof addr;
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), size), 0);
    ASSERT_EQ(::listen(fd, 1), 0);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size);
    std::string listen = "127.0.0.1:" + std::to_string(ntohs(addr.sin_port));
    rt::test::ChildProcess serve({rt::test::BinPath("fieldtest"), "serve", "--listen", listen});
    EXPECT_EQ(serve.Wait(5000), 1);
    EXPECT_NE(serve.Stderr().find("cannot listen on " + listen + ": Address already in use"),
              std::string::npos)
        << serve.Stderr();
    rt::test::ChildProcess bad({rt::test::BinPath("fieldtest"), "serve", "--listen", "nowhere"});
    EXPECT_EQ(bad.Wait(5000), 2);
    ::close(fd);
}

}  // namespace
