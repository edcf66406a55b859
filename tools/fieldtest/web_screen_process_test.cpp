// fieldtest serve against the real processes: ppsd, devsim, modemsim and
// radio_tavora. The HTTP endpoints, the settings with their checks, the
// event stream, what the page is told when the daemon or the broker goes
// and comes back, and what the server refuses to foreign pages and to
// clients that would hold it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/pps/pps_client.h"
#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/eventually.h"
#include "testsupport/modemsim_process.h"
#include "testsupport/mosquitto_process.h"

namespace {

using Json = nlohmann::json;
using rt::test::DaemonFixture;
using rt::test::DaemonOptions;

using rt::test::BoundLoopbackSocket;

// A TCP connection to the screen from a loopback address of the test's
// choice, for what an HTTP client library will not do: stay half-sent, or
// come from several client addresses.
class RawConnection {
  public:
    RawConnection(int port, const std::string& from) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        ::inet_pton(AF_INET, from.c_str(), &addr.sin_addr);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        addr.sin_port = htons(static_cast<uint16_t>(port));
        ::inet_pton(AF_INET, "127.0.0.1", &addr.sin_addr);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    }
    ~RawConnection() { ::close(fd_); }
    bool Send(const std::string& text) {
        return connected_ && ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) ==
                                 static_cast<ssize_t>(text.size());
    }
    // The status of the response ("HTTP/1.1 200 OK" gives 200); 0 when none
    // comes within `timeout_ms`.
    int Status(int timeout_ms = 5000) {
        std::string text;
        while (text.find("\r\n") == std::string::npos) {
            pollfd entry{fd_, POLLIN, 0};
            char buffer[512];
            ssize_t n =
                ::poll(&entry, 1, timeout_ms) > 0 ? ::recv(fd_, buffer, sizeof buffer, 0) : 0;
            if (n <= 0) return 0;
            text.append(buffer, static_cast<size_t>(n));
        }
        return text.size() > 12 ? std::atoi(text.c_str() + 9) : 0;
    }
    // Whether the server has closed it (what it sent before is read away).
    bool ClosedByServer(int timeout_ms) {
        char buffer[512];
        for (pollfd entry{fd_, POLLIN, 0}; ::poll(&entry, 1, timeout_ms) > 0;)
            if (::recv(fd_, buffer, sizeof buffer, 0) <= 0) return true;
        return false;
    }

  private:
    int fd_;
    bool connected_ = false;
};

// `fieldtest serve` on a free port of the loopback, asking every half second.
class Serve {
  public:
    Serve(const std::string& pps_env, const std::vector<std::string>& extra)
        : port_(rt::test::FreeLoopbackPort()) {
        std::vector<std::string> argv{rt::test::BinPath("fieldtest"),
                                      "serve",
                                      "--listen",
                                      "127.0.0.1:" + std::to_string(port_),
                                      "--interval",
                                      "0.5",
                                      "--timeout",
                                      "2"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        process_ =
            std::make_unique<rt::test::ChildProcess>(argv, std::vector<std::string>{pps_env});
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
    void StartAll(bool start_daemon = true, const std::vector<std::string>& serve_args = {}) {
        DaemonOptions options;
        options.start = start_daemon;
        world_ =
            std::make_unique<rt::test::ModemAndDaemon>(R"({"lte": {"period_ms": 100}})", options);
        ASSERT_TRUE(world_->modem().ready() && (!start_daemon || world_->started()))
            << world_->Errors();
        daemon_ = &world_->daemon();
        serve_ = std::make_unique<Serve>(daemon_->broker().env(), serve_args);
        ASSERT_TRUE(serve_->ready()) << serve_->process().Stderr();
    }
    std::unique_ptr<rt::test::ModemAndDaemon> world_;
    DaemonFixture* daemon_ = nullptr;
    std::unique_ptr<Serve> serve_;
};

TEST_F(WebScreenProcess, PageAndReportsAreServed) {
    StartAll();
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    httplib::Client client = serve_->Client();

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
    // Each refused with 400 and its reason; the rules' own texts are
    // setting_rules_test's, so one rule stands for them here.
    const std::pair<std::string, std::string> refused[] = {
        {R"({"name": "diaglogmask", "value": "2"})", "diaglogmask is 0 or 1"},
        {R"({"name": "diaglogmask"})", "expected"},
        {R"(not json)", "expected"},
        {R"({"name": "diaglogmask", "value": 1})", "expected"},
    };
    for (const auto& [body, reason] : refused) {
        auto reply = client.Post("/api/config", body, "application/json");
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, 400) << body;
        EXPECT_NE(Json::parse(reply->body)["error"].get<std::string>().find(reason),
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

// What a page of another site could send through the user's browser, or
// through a name rebound to this address, changes nothing and reads nothing.
TEST_F(WebScreenProcess, ForeignHostsOriginsAndTypesAreRefused) {
    StartAll(/*start_daemon=*/false);
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::0"}));
    httplib::Client client = serve_->Client();
    const std::string own = "127.0.0.1:" + std::to_string(serve_->port());
    const std::string set_mask = R"({"name": "diaglogmask", "value": "1"})";
    struct Case {
        const char* method;
        const char* path;
        httplib::Headers headers;
        const char* content_type;
        int status;
    };
    const Case cases[] = {
        {"GET",
         "/api/config",
         {{"Host", "rebound.example:" + std::to_string(serve_->port())}},
         "",
         421},
        {"GET", "/api/recording.csv", {{"Host", "rebound.example"}}, "", 421},
        {"GET", "/api/recordings", {{"Host", "rebound.example"}}, "", 421},
        {"POST", "/api/config", {{"Host", "rebound.example"}}, "application/json", 421},
        {"POST", "/api/config", {}, "text/plain", 415},
        {"POST", "/api/config", {}, "application/x-www-form-urlencoded", 415},
        {"POST", "/api/config", {{"Origin", "http://evil.example"}}, "application/json", 403},
        {"POST", "/api/interval", {{"Origin", "null"}}, "application/json", 403},
        {"GET", "/api/config", {{"Origin", "http://evil.example"}}, "", 200},
    };
    for (const Case& c : cases) {
        auto reply = std::string(c.method) == "GET"
                         ? client.Get(c.path, c.headers)
                         : client.Post(c.path, c.headers, set_mask, c.content_type);
        ASSERT_TRUE(reply) << c.method << " " << c.path;
        EXPECT_EQ(reply->status, c.status) << c.method << " " << c.path << " " << reply->body;
    }
    EXPECT_NE(daemon_->ReadObject(rt::test::kConfigObject).find("diaglogmask::0"),
              std::string::npos);
    // The page's own request, with its own origin, is served.
    auto own_post =
        client.Post("/api/config", {{"Origin", "http://" + own}}, set_mask, "application/json");
    ASSERT_TRUE(own_post);
    EXPECT_EQ(own_post->status, 200) << own_post->body;
}

// Event streams are bounded per client address and overall; clients that
// send their headers slowly hold no thread the API needs, and are dropped.
TEST_F(WebScreenProcess, StreamsAndSlowClientsCannotStarveTheApi) {
    StartAll(/*start_daemon=*/false);
    const int port = serve_->port();
    const std::string request =
        "GET /api/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
    std::vector<std::unique_ptr<RawConnection>> streams;
    auto open_stream = [&](const std::string& from) {
        streams.push_back(std::make_unique<RawConnection>(port, from));
        return streams.back()->Send(request) ? streams.back()->Status() : 0;
    };
    for (int i = 0; i < 4; ++i) EXPECT_EQ(open_stream("127.0.0.1"), 200);
    EXPECT_EQ(open_stream("127.0.0.1"), 429);
    for (int address = 2; address <= 4; ++address)
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(open_stream("127.0.0." + std::to_string(address)), 200);
    EXPECT_EQ(open_stream("127.0.0.5"), 503);

    // Forty clients that never finish their headers, as many as once held
    // every worker; the API answers while they are all still connected.
    std::vector<std::unique_ptr<RawConnection>> slow;
    for (int i = 0; i < 40; ++i) {
        slow.push_back(std::make_unique<RawConnection>(port, "127.0.0.6"));
        ASSERT_TRUE(slow.back()->Send("GET /api/config HTTP/1.1\r\nHost: 127.0.0.1"));
    }
    auto config = serve_->Client().Get("/api/config");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->status, 200);
    for (auto& connection : slow) EXPECT_FALSE(connection->ClosedByServer(0));
    // Their time is up a few seconds after their first byte.
    for (auto& connection : slow) EXPECT_TRUE(connection->ClosedByServer(15000));
}

// The lines of a text, and of a file.
std::vector<std::string> Lines(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}
std::vector<std::string> FileLines(const std::string& path) {
    return Lines(rt::test::ReadFile(path));
}

// The count in a stop's "N samples recorded in" line, -1 when absent.
long long RecordedCount(const std::string& stderr_text) {
    size_t at = stderr_text.rfind(" samples recorded in ");
    if (at == std::string::npos) return -1;
    size_t begin = stderr_text.rfind("fieldtest: ", at) + 11;
    return std::stoll(stderr_text.substr(begin, at - begin));
}

// Every sample on disk as it is taken: what the server acknowledged before
// a SIGTERM is in the file after it, byte for byte, and the page downloads
// the recordings from that folder only. `fieldtest record` does the same
// without a page.
TEST_F(WebScreenProcess, RecordingOnDiskKeepsEverySampleAcknowledged) {
    rt::test::TempDir dir;
    StartAll(true, {"--record", dir.file("serve")});
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    rt::test::ChildProcess record(
        {rt::test::BinPath("fieldtest"), "record", "--interval", "0.5", dir.file("record")},
        {daemon_->broker().env()});
    httplib::Client client = serve_->Client();
    Json listing;
    // Both have flushed an LTE sample: the modem's LTE packets came after
    // the mask, so the first rounds may hold none.
    const std::string pci_row = ",modem0,lteopinfo,lte_pci,87,,,\n";
    auto flushed_pci = [&](const std::string& folder) {
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(dir.file(folder), ec))
            if (rt::test::ReadFile(entry.path()).find(pci_row) != std::string::npos) return true;
        return false;
    };
    ASSERT_TRUE(rt::test::Eventually([&] {
        auto reply = client.Get("/api/recordings");
        listing = reply ? Json::parse(reply->body) : Json();
        return reply && listing["recording"]["acknowledged"] >= 300 && flushed_pci("serve") &&
               flushed_pci("record");
    })) << "no 300 acknowledged samples with an LTE row in both folders: "
        << listing.dump();
    const unsigned long long acknowledged = listing["recording"]["acknowledged"];
    const std::string name = listing["recording"]["file"];
    ASSERT_EQ(listing["files"].size(), 1u);
    EXPECT_EQ(listing["files"][0]["name"], name);

    auto download = client.Get("/api/recordings/" + name);
    ASSERT_TRUE(download);
    ASSERT_EQ(download->status, 200);
    const std::string downloaded = download->body;
    EXPECT_GE(std::count(downloaded.begin(), downloaded.end(), '\n'), acknowledged + 1);

    // Only a recording of that folder is served: no other name, no link out.
    ::symlink("/etc/passwd", dir.file("serve/fieldtest-20200101-000000.csv").c_str());
    for (const char* path :
         {"/api/recordings/..%2F..%2F..%2Fetc%2Fpasswd",
          "/api/recordings/fieldtest-20200101-000000.csv",
          "/api/recordings/fieldtest-20200101-000001.csv", "/api/recordings/.."}) {
        auto refused = client.Get(path);
        ASSERT_TRUE(refused) << path;
        EXPECT_EQ(refused->status, 404) << path;
    }

    ASSERT_TRUE(serve_->process().Signal(SIGTERM));
    ASSERT_TRUE(record.Signal(SIGTERM));
    EXPECT_EQ(serve_->process().Wait(), 0);
    EXPECT_EQ(record.Wait(), 0);
    for (const auto& [folder, process] :
         {std::pair<std::string, rt::test::ChildProcess*>{"serve", &serve_->process()},
          {"record", &record}}) {
        auto files = std::filesystem::directory_iterator(dir.file(folder));
        std::string path;
        for (const auto& entry : files)
            if (!entry.is_symlink()) path = entry.path();
        const std::string text = rt::test::ReadFile(path);
        std::vector<std::string> lines = Lines(text);
        ASSERT_GT(lines.size(), 1u) << folder;
        EXPECT_EQ(lines[0], "time,device,report,attribute,value,latitude,longitude,fix_time");
        // The count the program gives at its end is what the file holds.
        EXPECT_EQ(RecordedCount(process->Stderr()), static_cast<long long>(lines.size()) - 1)
            << process->Stderr();
        EXPECT_NE(text.find(pci_row), std::string::npos) << folder;
        if (folder == "serve") {
            EXPECT_GE(lines.size() - 1, acknowledged);
            EXPECT_EQ(text.compare(0, downloaded.size(), downloaded), 0)
                << "what was downloaded before the stop is not what the file begins with";
        }
    }
}

// The comma-separated fields of a line, empty ones kept.
std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::stringstream in(line + ",");
    for (std::string field; std::getline(in, field, ',');) fields.push_back(field);
    return fields;
}

// The fixes of the project's NMEA track in order, from its $GPRMC sentences.
std::vector<std::pair<double, double>> TrackFixes() {
    std::vector<std::pair<double, double>> fixes;
    for (const std::string& line : FileLines(RT_DRIVE_TRACK)) {
        std::vector<std::string> f = Fields(line);
        if (f[0] != "$GPRMC") continue;
        auto degrees = [](const std::string& text, int digits, bool negative) {
            double value = std::stod(text.substr(0, digits)) + std::stod(text.substr(digits)) / 60;
            return negative ? -value : value;
        };
        fixes.emplace_back(degrees(f[3], 2, f[4] == "S"), degrees(f[5], 3, f[6] == "W"));
    }
    return fixes;
}

// gpsd, fed the project's track by gpsfake over and over: the header shows
// the fix, and the recorded samples carry the track's positions, in the
// track's order, each with its fix time. The track loops so that a server
// that reaches gpsd late, on a loaded machine, still sees whole passes.
TEST_F(WebScreenProcess, SamplesCarryTheGpsdTrackInOrder) {
    if (::access("/usr/bin/gpsfake", X_OK) != 0)
        GTEST_SKIP() << "gpsfake is not installed (Debian package gpsd-clients)";
    rt::test::TempDir dir;
    const std::string gpsd_port = std::to_string(rt::test::FreeLoopbackPort());
    rt::test::ChildProcess gpsfake(
        {"/usr/bin/gpsfake", "-q", "-P", gpsd_port, "-c", "0.15", RT_DRIVE_TRACK},
        {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"});
    StartAll(true, {"--record", dir.path(), "--gpsd", "127.0.0.1:" + gpsd_port});
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    const auto fixes = TrackFixes();
    ASSERT_EQ(fixes.size(), 36u);
    auto fix_index = [&](double lat, double lon) {
        for (size_t i = 0; i < fixes.size(); ++i)
            if (std::abs(fixes[i].first - lat) < 2e-6 && std::abs(fixes[i].second - lon) < 2e-6)
                return i;
        return fixes.size();
    };
    // A fix lasts 0.3 s and the screen looks every 0.5 s or more (much more
    // on a loaded machine), so it sees some fixes of a pass, not all: "the
    // start" and "the end" are the track's first and last quarter.
    const size_t quarter = fixes.size() / 4;
    // The header's fix follows a pass of the track from its start to its end.
    bool started = false;
    EXPECT_TRUE(serve_->Events(
        [&](const std::string& event, const Json& data) {
            if (event != "health" || data["position"]["known"] != true) return false;
            size_t at = fix_index(data["position"]["latitude"], data["position"]["longitude"]);
            started = started || at < quarter;
            return started && at < fixes.size() && at >= fixes.size() - quarter;
        },
        90))
        << gpsfake.Stderr();
    ASSERT_TRUE(serve_->process().Signal(SIGTERM));
    EXPECT_EQ(serve_->process().Wait(), 0);

    std::string path;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) path = entry.path();
    // Positions move forward through the track; the only step back is the
    // loop's, from its end to its start.
    size_t at = fixes.size(), in_pass = 0, longest_pass = 0;
    for (const std::string& line : FileLines(path)) {
        // A value may hold commas (quoted): the position is the last three.
        std::vector<std::string> f = Fields(line);
        const size_t n = f.size();
        if (n < 8 || f[n - 3].empty() || f[0] == "time") continue;
        size_t next = fix_index(std::stod(f[n - 3]), std::stod(f[n - 2]));
        ASSERT_LT(next, fixes.size()) << "not a fix of the track: " << line;
        if (next == at) continue;
        if (at == fixes.size() || next < at) {
            ASSERT_TRUE(at == fixes.size() || (at >= fixes.size() - quarter && next < quarter))
                << "fix " << next << " after fix " << at << ": " << line;
            in_pass = 0;
        }
        at = next;
        longest_pass = std::max(longest_pass, ++in_pass);
        char time[32];
        std::snprintf(time, sizeof time, "2024-06-10T12:00:%02zu.000Z", at);
        // gpsd's first report of a fix may come before its time.
        if (!f[n - 1].empty() || in_pass > 1) {
            EXPECT_EQ(f[n - 1], time) << line;
        }
    }
    EXPECT_GE(longest_pass, 4u);
}

TEST(WebScreenServe, TakenPortIsAClearError) {
    int port = 0;
    int fd = BoundLoopbackSocket(&port);
    ASSERT_EQ(::listen(fd, 1), 0);
    std::string listen = "127.0.0.1:" + std::to_string(port);
    rt::test::ChildProcess serve({rt::test::BinPath("fieldtest"), "serve", "--listen", listen});
    EXPECT_EQ(serve.Wait(5000), 1);
    EXPECT_NE(serve.Stderr().find("cannot listen on " + listen + ": Address already in use"),
              std::string::npos)
        << serve.Stderr();
    rt::test::ChildProcess bad({rt::test::BinPath("fieldtest"), "serve", "--listen", "nowhere"});
    EXPECT_EQ(bad.Wait(5000), 2);
    ::close(fd);
}

// Watching a diag/config that is not there yet makes it as a settings
// writer does: only its owner and the screen's group may touch it.
TEST(WebScreenServe, ConfigItMakesIsTheScreensGroupsOnly) {
    rt::test::PpsBroker broker;
    Serve serve(broker.env(), {});
    ASSERT_TRUE(serve.ready()) << serve.process().Stderr();
    struct stat info {};
    ASSERT_TRUE(
        rt::test::Eventually([&] { return pps_stat(rt::test::kConfigObject, &info) == 0; }));
    EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFREG | 0660));
}

}  // namespace
