#include "tools/fieldtest/web_screen.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "platform/pps/pps_client.h"
#include "tools/fieldtest/disk_recording.h"
#include "tools/fieldtest/event_hub.h"
#include "tools/fieldtest/gpsd_client.h"
#include "tools/fieldtest/guarded_server.h"
#include "tools/fieldtest/mqtt_fleet.h"
#include "tools/fieldtest/recording.h"
#include "tools/fieldtest/report_layout.h"
#include "tools/fieldtest/request_guard.h"
#include "tools/fieldtest/screen_client.h"
#include "tools/fieldtest/setting_rules.h"
#include "tools/fieldtest/web_assets.h"

namespace fieldtest {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kMinInterval = 0.5, kMaxInterval = 60;
constexpr size_t kMaxRequestBody = 16 * 1024;
// Event streams: a screen needs one per open page.
constexpr size_t kMaxStreams = 16, kMaxStreamsPerAddress = 4;
// Rows of the recording written per slice of a download.
constexpr size_t kRecordingSliceRows = 2000;
// Bytes of a recording on disk read per slice of its download.
constexpr size_t kFileSliceBytes = 64 * 1024;
// The modem the samples come from, as the daemon's objects name it.
constexpr const char* kDevice = "modem0";
// A page that hears nothing for this long gets a comment line, so a closed
// page is noticed and its thread freed.
constexpr auto kKeepAlive = std::chrono::seconds(10);

long long UnixMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool BrokerReachable() {
    std::vector<std::string> entries;
    return pps_list("/pps/", &entries) == 0;
}

void ReplyJson(httplib::Response& res, const Json& body, int status = 200) {
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(JsonText(body), "application/json");
}

void ReplyError(httplib::Response& res, int status, const std::string& error) {
    ReplyJson(res, Json{{"error", error}}, status);
}

// Whether a bind of host:port can succeed now; the reason when not. The
// server's own bind gives no reason.
std::string BindError(const std::string& host, int port) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, host.c_str(), &addr.sin_addr) != 1)
        return "'" + host + "' is not an IPv4 address";
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return std::strerror(errno);
    int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    std::string error;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0)
        error = std::strerror(errno);
    ::close(fd);
    return error;
}

}  // namespace

struct WebScreen::Impl {
    explicit Impl(WebScreenOptions o) : options(std::move(o)), interval_s(options.interval_s) {
        // A setting or an interval is a few bytes; a larger body is refused
        // (413) rather than held in memory.
        server.set_payload_max_length(kMaxRequestBody);
    }

    WebScreenOptions options;
    GuardedServer server;
    StreamSlots streams{kMaxStreams, kMaxStreamsPerAddress};
    EventHub hub;
    Recording recording;
    std::unique_ptr<DiskRecording> disk;
    std::unique_ptr<GpsdClient> gps;
    std::unique_ptr<MqttFleet> fleet;
    // Scripts the system installed, served as read at start: path ->
    // {content, type, the package that provides it}.
    struct SystemAsset {
        std::string content, type, package;
    };
    std::map<std::string, SystemAsset> system_assets;
    std::atomic<double> interval_s;
    std::atomic<int> next_id{static_cast<int>(::getpid() % 10000) * 1000 + 500};

    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;
    std::thread poller, config_watcher;

    Json TakeReport(const ReportInfo& report) {
        std::vector<Attribute> attributes;
        std::string error = FetchReport(report, next_id++, options.timeout_ms, &attributes);
        Json out = {{"report", report.name},
                    {"object", report.status_object},
                    {"time", UnixMs()},
                    {"error", error}};
        Json layout = ReportLayout(attributes);
        out["values"] = std::move(layout["values"]);
        out["items"] = std::move(layout["items"]);
        if (error.empty()) {
            Position position = gps ? gps->Latest() : Position{};
            recording.Add(out["time"].get<long long>(), report.name, out["values"]);
            if (disk)
                disk->Add(out["time"].get<long long>(), kDevice, report.name, out["values"],
                          position);
            // Where it was taken: the page draws the track from these.
            if (position.known)
                out["position"] = {{"latitude", position.latitude},
                                   {"longitude", position.longitude}};
        }
        return out;
    }

    Json PositionJson() {
        return gps ? gps->Json() : Json{{"known", false}, {"text", "no position"}};
    }

    Json RecordingJson() {
        if (!disk) return nullptr;
        return {{"dir", disk->dir()},
                {"file", disk->current_file()},
                {"acknowledged", disk->acknowledged()},
                {"error", disk->error()}};
    }

    Json ConfigJson() { return ToJson(ParseAttributes(ReadObject(kConfigPath))); }

    // Sleeps for `seconds` or until woken by a stop or a new interval.
    bool Pause(double seconds) {
        std::unique_lock lock(mutex);
        wake.wait_for(lock, std::chrono::milliseconds(static_cast<int>(seconds * 1000)),
                      [&] { return stopping; });
        return !stopping;
    }

    void PollReports() {
        do {
            bool broker = BrokerReachable();
            bool daemon = false;
            std::string problem;
            if (broker) {
                for (const ReportInfo& report : Reports()) {
                    Json taken = TakeReport(report);
                    std::string error = taken["error"];
                    if (report.asked && error.empty()) daemon = true;
                    if (report.asked && !error.empty() && problem.empty()) problem = error;
                    hub.Publish(std::string("report:") + report.name, "report", JsonText(taken));
                    if (!daemon && report.asked) break;  // no daemon: no point asking the rest
                }
            } else {
                problem = "the PPS broker is not running (" + pps_socket_path() + ")";
            }
            Json modem =
                broker
                    ? ToJson(ParseAttributes(ReadObject(std::string(kStatusDir) + "status_data")))
                    : Json::object();
            Json health = {{"broker", broker},
                           {"daemon", daemon},
                           {"problem", daemon ? "" : problem},
                           {"modem_state", modem.value("modem_state", Json(nullptr))},
                           {"interval", interval_s.load()},
                           {"recorded", recording.rows()},
                           {"recording", RecordingJson()},
                           {"position", PositionJson()},
                           {"time", UnixMs()}};
            hub.Publish("health", "health", JsonText(health));
        } while (Pause(interval_s.load()));
    }

    // A sample from a device on the broker: shown, and recorded with the
    // device's name unless the broker kept it from before (then whoever
    // listened at the time recorded it).
    void TakeFleetSample(const std::string& device, Json sample, bool retained) {
        std::string report = sample["report"];
        if (sample["error"].get<std::string>().empty() && !retained) {
            long long time = sample["time"];
            Position position = gps ? gps->Latest() : Position{};
            recording.Add(time, device + "/" + report, sample["values"]);
            if (disk) disk->Add(time, device, report, sample["values"], position);
            if (position.known)
                sample["position"] = {{"latitude", position.latitude},
                                      {"longitude", position.longitude}};
        }
        hub.Publish("report:" + device + ":" + report, "report", JsonText(sample));
    }

    // With a broker, health is the link's and the devices': published on
    // the interval as the local rounds would be.
    void WatchFleet() {
        do {
            Json devices = fleet->Devices();
            bool online = false;
            for (const auto& device : devices) online = online || device["status"] == "online";
            std::string where = options.mqtt.host + ":" + std::to_string(options.mqtt.port);
            std::string problem = !fleet->connected()
                                      ? "the MQTT broker " + where + " is not reachable"
                                  : online ? ""
                                           : "no device is online on " + where;
            Json health = {{"broker", fleet->connected()},
                           {"daemon", online},
                           {"problem", problem},
                           {"fleet", where},
                           {"devices", devices},
                           {"modem_state", nullptr},
                           {"interval", interval_s.load()},
                           {"recorded", recording.rows()},
                           {"recording", RecordingJson()},
                           {"position", PositionJson()},
                           {"time", UnixMs()}};
            hub.Publish("health", "health", JsonText(health));
        } while (Pause(interval_s.load()));
    }

    // diag/config through a delta handle: every change (the page's own, the
    // daemon's write-backs, another screen's) is pushed as it happens. The
    // handle is opened again when the broker comes back.
    void WatchConfig() {
        std::string path = std::string(kConfigPath) + "?delta";
        std::string last;
        while (true) {
            {
                std::lock_guard lock(mutex);
                if (stopping) return;
            }
            int fd = pps_open(path.c_str(), O_RDONLY | O_CREAT, kConfigMode);
            if (fd >= 0) {
                char buffer[4096];
                while (true) {
                    pollfd pfd{fd, POLLIN, 0};
                    int ready = ::poll(&pfd, 1, 300);
                    {
                        std::lock_guard lock(mutex);
                        if (stopping) break;
                    }
                    if (ready <= 0) continue;
                    if (pps_read(fd, buffer, sizeof buffer) <= 0) break;
                    std::string config = JsonText(ConfigJson());
                    if (config != last) hub.Publish("config", "config", config);
                    last = config;
                }
                ::close(fd);
            }
            if (!Pause(1)) return;
        }
    }

    void Routes() {
        // Before any route: the Host must name this server, and a request
        // that changes something must come from the page itself, as JSON.
        server.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
            RequestFacts facts{req.method, req.get_header_value("Host"), req.has_header("Origin"),
                               req.get_header_value("Origin"),
                               req.get_header_value("Content-Type")};
            Refusal refusal = CheckRequest(facts, options.host, options.port);
            if (refusal.status == 0) return httplib::Server::HandlerResponse::Unhandled;
            // The body, if any, is left unread: the connection ends here.
            GuardedServer::CloseAfterResponse();
            ReplyError(res, refusal.status, refusal.reason);
            return httplib::Server::HandlerResponse::Handled;
        });
        server.Get("/", [](const httplib::Request&, httplib::Response& res) {
            res.set_redirect("/index.html");
        });
        for (const WebAsset& asset : WebAssets()) {
            server.Get(asset.path, [&asset](const httplib::Request&, httplib::Response& res) {
                res.set_content(reinterpret_cast<const char*>(asset.data), asset.size,
                                asset.content_type);
            });
        }
        for (const auto& entry : system_assets) {
            const auto& asset = entry.second;  // a named reference: lambdas cannot capture bindings
            server.Get(entry.first, [&asset](const httplib::Request&, httplib::Response& res) {
                if (asset.content.empty()) {
                    res.status = 404;
                    res.set_content("not installed (Debian package " + asset.package + ")",
                                    "text/plain");
                    return;
                }
                res.set_header("Cache-Control", "max-age=3600");
                res.set_content(asset.content, asset.type);
            });
        }
        server.Get("/api/reports", [](const httplib::Request&, httplib::Response& res) {
            Json list = Json::array();
            for (const ReportInfo& r : Reports())
                list.push_back({{"name", r.name}, {"object", r.status_object}});
            ReplyJson(res, list);
        });
        server.Get(R"(/api/report/([A-Za-z0-9_]+))", [this](const httplib::Request& req,
                                                            httplib::Response& res) {
            const ReportInfo* report = FindReport(req.matches[1]);
            if (report == nullptr)
                return ReplyError(res, 404, "unknown report '" + std::string(req.matches[1]) + "'");
            Json taken = TakeReport(*report);
            bool ok = taken["error"].get<std::string>().empty();
            ReplyJson(res, taken, ok ? 200 : 503);
        });
        server.Get("/api/settings", [](const httplib::Request&, httplib::Response& res) {
            Json list = Json::array();
            for (const std::string& name : SettingNameList())
                list.push_back({{"name", name}, {"choices", SettingChoices(name)}});
            ReplyJson(res, list);
        });
        server.Get("/api/config", [this](const httplib::Request&, httplib::Response& res) {
            if (!BrokerReachable()) return ReplyError(res, 503, "the PPS broker is not running");
            ReplyJson(res, ConfigJson());
        });
        server.Post("/api/config", [this](const httplib::Request& req, httplib::Response& res) {
            Json body = Json::parse(req.body, nullptr, false);
            if (body.is_discarded() || !body.is_object() || !body.contains("name") ||
                !body["name"].is_string() || !body.contains("value") || !body["value"].is_string())
                return ReplyError(res, 400, R"(expected {"name": "...", "value": "..."})");
            std::string name = body["name"], value = body["value"];
            std::string error = CheckSetting(name, value);
            if (!error.empty()) return ReplyError(res, 400, error);
            if (fleet) {
                // To the device the page has picked; its publisher applies
                // it only when it accepts settings.
                if (!body.contains("device") || !body["device"].is_string())
                    return ReplyError(res, 400, "expected the device to send the setting to");
                std::string device = body["device"];
                if (!fleet->SendSetting(device, name, value))
                    return ReplyError(res, 503, "the MQTT broker is not reachable");
                return ReplyJson(res, Json{{"sent", device}});
            }
            if (!BrokerReachable()) return ReplyError(res, 503, "the PPS broker is not running");
            error = WriteConfig({{name, value}});
            if (!error.empty()) return ReplyError(res, 503, error);
            ReplyJson(res, ConfigJson());
        });
        server.Post("/api/interval", [this](const httplib::Request& req, httplib::Response& res) {
            Json body = Json::parse(req.body, nullptr, false);
            if (body.is_discarded() || !body.is_object() || !body.contains("seconds") ||
                !body["seconds"].is_number())
                return ReplyError(res, 400, R"(expected {"seconds": S})");
            double seconds = body["seconds"];
            if (!(seconds >= kMinInterval && seconds <= kMaxInterval))
                return ReplyError(res, 400, "the interval must be from 0.5 to 60 seconds");
            interval_s = seconds;
            wake.notify_all();
            ReplyJson(res, Json{{"seconds", seconds}});
        });
        server.Get("/api/recording.csv", [this](const httplib::Request&, httplib::Response& res) {
            res.set_header("Content-Disposition",
                           "attachment; filename=\"fieldtest-recording.csv\"");
            // The rows there now, written a slice at a time as the client
            // takes them: memory stays one slice per download.
            auto span = std::make_shared<Recording::Span>(recording.Snapshot());
            auto header_sent = std::make_shared<bool>(false);
            res.set_chunked_content_provider(
                "text/csv", [this, span, header_sent](size_t, httplib::DataSink& sink) {
                    std::string text;
                    if (!*header_sent) text = Recording::kCsvHeader;
                    *header_sent = true;
                    text += recording.CsvSlice(span.get(), kRecordingSliceRows);
                    if (text.empty()) {
                        sink.done();
                        return true;
                    }
                    return sink.write(text.data(), text.size());
                });
        });
        server.Get("/api/recordings", [this](const httplib::Request&, httplib::Response& res) {
            Json files = Json::array();
            if (disk)
                for (const auto& file : disk->Files())
                    files.push_back({{"name", file.name}, {"bytes", file.bytes}});
            ReplyJson(res, Json{{"recording", RecordingJson()}, {"files", files}});
        });
        server.Get(R"(/api/recordings/([^/]+))", [this](const httplib::Request& req,
                                                        httplib::Response& res) {
            std::string name = req.matches[1];
            int fd = disk ? disk->OpenFile(name) : -1;
            if (fd < 0) return ReplyError(res, 404, "no recording named '" + name + "'");
            // What the file holds now, read a slice at a time as the client
            // takes it: a download of hours costs one slice of memory.
            struct stat info {};
            ::fstat(fd, &info);
            auto file = std::shared_ptr<int>(new int(fd), [](int* f) {
                ::close(*f);
                delete f;
            });
            res.set_header("Content-Disposition", "attachment; filename=\"" + name + "\"");
            res.set_content_provider(
                static_cast<size_t>(info.st_size), "text/csv",
                [file](size_t offset, size_t length, httplib::DataSink& sink) {
                    std::string slice(std::min(length, kFileSliceBytes), '\0');
                    ssize_t n =
                        ::pread(*file, slice.data(), slice.size(), static_cast<off_t>(offset));
                    return n > 0 && sink.write(slice.data(), static_cast<size_t>(n));
                });
        });
        server.Get("/api/devices", [this](const httplib::Request&, httplib::Response& res) {
            ReplyJson(res, fleet ? fleet->Devices() : Json::array());
        });
        server.Get("/api/events", [this](const httplib::Request& req, httplib::Response& res) {
            // Each stream holds a connection for as long as its page is
            // open: a bounded number, fewer from any one address.
            if (int refused = streams.Take(req.remote_addr); refused != 0) {
                res.set_header("Retry-After", "10");
                return ReplyError(res, refused, "too many event streams are open");
            }
            auto subscription = hub.Subscribe();
            res.set_header("Cache-Control", "no-store");
            res.set_chunked_content_provider(
                "text/event-stream",
                [subscription](size_t, httplib::DataSink& sink) {
                    std::optional<std::string> message = subscription->Next(kKeepAlive);
                    std::string text = message ? *message : ": keep-alive\n\n";
                    // A closed hub ends the stream; a page gone fails the write.
                    return !(subscription->closed()) && sink.write(text.data(), text.size());
                },
                [this, subscription, address = req.remote_addr](bool) {
                    hub.Unsubscribe(subscription);
                    streams.Give(address);
                });
        });
    }
};

WebScreen::WebScreen(WebScreenOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {
    const WebScreenOptions& o = impl_->options;
    auto read = [](const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        if (!path.empty() && in) text << in.rdbuf();
        return text.str();
    };
    impl_->system_assets = {
        {"/chart.js", {read(o.chart_js_path), "text/javascript", "libjs-chart.js"}},
        {"/leaflet.js",
         {read(o.leaflet_dir.empty() ? "" : o.leaflet_dir + "/leaflet.js"), "text/javascript",
          "libjs-leaflet"}},
        {"/leaflet.css",
         {read(o.leaflet_dir.empty() ? "" : o.leaflet_dir + "/leaflet.css"), "text/css",
          "libjs-leaflet"}},
    };
    if (o.gpsd_port != 0) impl_->gps = std::make_unique<GpsdClient>(o.gpsd_host, o.gpsd_port);
    if (o.fleet) {
        Impl* impl = impl_.get();
        impl_->fleet = std::make_unique<MqttFleet>(
            o.mqtt,
            [impl](const std::string& device, Json sample, bool retained) {
                impl->TakeFleetSample(device, std::move(sample), retained);
            },
            [impl](const Json& device) {
                impl->hub.Publish("device:" + device["device"].get<std::string>(), "device",
                                  JsonText(device));
            });
    }
    impl_->Routes();
}

WebScreen::~WebScreen() {
    Stop();
}

bool WebScreen::Listen(std::string* error) {
    if (!impl_->options.record_dir.empty()) {
        impl_->disk = std::make_unique<DiskRecording>(impl_->options.record_dir);
        std::string reason;
        if (!impl_->disk->Start(&reason)) {
            *error = "cannot record: " + reason;
            return false;
        }
    }
    if (impl_->fleet && !impl_->fleet->Start(error)) return false;
    if (!impl_->options.page) return true;
    std::string reason = BindError(impl_->options.host, impl_->options.port);
    if (reason.empty() && !impl_->server.Bind(impl_->options.host, impl_->options.port))
        reason = "the address cannot be taken";
    if (!reason.empty()) {
        *error = "cannot listen on " + impl_->options.host + ":" +
                 std::to_string(impl_->options.port) + ": " + reason;
        return false;
    }
    return true;
}

void WebScreen::Run() {
    impl_->poller = std::thread([this] {
        if (impl_->fleet)
            impl_->WatchFleet();
        else
            impl_->PollReports();
    });
    if (!impl_->options.page) {
        std::unique_lock lock(impl_->mutex);
        impl_->wake.wait(lock, [this] { return impl_->stopping; });
        return;
    }
    if (!impl_->fleet) impl_->config_watcher = std::thread([this] { impl_->WatchConfig(); });
    impl_->server.listen_after_bind();
}

void WebScreen::Stop() {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
    }
    impl_->wake.notify_all();
    impl_->hub.Close();
    impl_->server.stop();
    if (impl_->poller.joinable()) impl_->poller.join();
    if (impl_->config_watcher.joinable()) impl_->config_watcher.join();
    // No more samples from the broker before the recording closes.
    if (impl_->fleet) impl_->fleet->Stop();
    // Nothing takes samples any more: what was taken goes to the file.
    if (impl_->disk) impl_->disk->Close();
}

std::string WebScreen::RecordingSummary() {
    if (!impl_->disk) return "";
    std::string files;
    for (const auto& name : impl_->disk->opened()) files += " " + name;
    return std::to_string(impl_->disk->acknowledged()) + " samples recorded in " +
           impl_->disk->dir() + " (" + files.substr(files.empty() ? 0 : 1) + ")";
}

bool ParseListenAddress(const std::string& text, std::string* host, int* port) {
    size_t colon = text.rfind(':');
    std::string port_text = colon == std::string::npos ? text : text.substr(colon + 1);
    if (colon != std::string::npos && colon > 0) *host = text.substr(0, colon);
    if (port_text.empty() || port_text.size() > 5 ||
        port_text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    int value = std::stoi(port_text);
    if (value < 1 || value > 65535) return false;
    *port = value;
    return true;
}

}  // namespace fieldtest
