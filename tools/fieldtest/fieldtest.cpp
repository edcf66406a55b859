// fieldtest: what the field-test screen does with radio_tavora.
//
//   fieldtest [--json] [--timeout SEC] [REPORT... | all]   ask for reports, show them
//   fieldtest watch [--interval SEC] [--count N] [REPORT... | all]
//   fieldtest set NAME=VALUE...                     change settings in diag/config
//                                                   and show it once applied
//   fieldtest serve [--listen ADDR:PORT] [--interval SEC] [--record DIR]
//                                                   the screen as a web page
//   fieldtest record [--interval SEC] DIR           every report's values to CSV in DIR
//   fieldtest publish --mqtt HOST[:PORT] --device NAME [--interval SEC] [--reports A,B]
//                     [--accept-settings] [--keepalive SEC]
//                                                   the reports on an MQTT broker
//   (serve and record take --gpsd [HOST[:PORT]]: each sample's position from gpsd,
//    and --mqtt HOST[:PORT]: every device's samples from that broker, through
//    a persistent session; --mqtt goes with --tls-ca FILE, --username NAME,
//    --password-file FILE, --client-id ID)
//
// A report is asked for by writing msg/id to the daemon's server object as
// a client; once the reply with the same id is back, the report's status
// object is read and shown as a table of attributes (or as JSON).
#include <fcntl.h>
#include <getopt.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "platform/pps/pps_client.h"
#include "tools/fieldtest/gpsd_client.h"
#include "tools/fieldtest/mqtt_link.h"
#include "tools/fieldtest/mqtt_publisher.h"
#include "tools/fieldtest/numbered_array_table.h"
#include "tools/fieldtest/report_layout.h"
#include "tools/fieldtest/screen_client.h"
#include "tools/fieldtest/setting_rules.h"
#include "tools/fieldtest/web_screen.h"

namespace {

using fieldtest::Attribute;
using fieldtest::FindReport;

// dm_stats' counts per code and version as rows under a header of the
// count names, numbers aligned on the right.
bool PrintVersionsTable(const Attribute& a) {
    auto table =
        fieldtest::VersionsTable(a.name, nlohmann::ordered_json::parse(a.value, nullptr, false));
    if (!table) return false;
    std::vector<std::vector<std::string>> lines{{"code version"}};
    for (const auto& column : (*table)["columns"]) lines[0].push_back(column.get<std::string>());
    for (const auto& row : (*table)["rows"]) {
        lines.push_back({row["name"].get<std::string>()});
        for (const auto& cell : row["cells"])
            lines.back().push_back(cell.is_null() ? "-" : cell.dump());
    }
    std::vector<size_t> width(lines[0].size(), 0);
    for (const auto& line : lines)
        for (size_t i = 0; i < line.size(); ++i) width[i] = std::max(width[i], line[i].size());
    std::printf("  %s\n", a.name.c_str());
    for (const auto& line : lines) {
        std::printf("    %-*s", static_cast<int>(width[0]), line[0].c_str());
        for (size_t i = 1; i < line.size(); ++i)
            std::printf("  %*s", static_cast<int>(width[i]), line[i].c_str());
        std::printf("\n");
    }
    return true;
}

void PrintTable(const std::string& report, const std::vector<Attribute>& attrs) {
    size_t width = 0;
    for (const auto& a : attrs) width = std::max(width, a.name.size());
    std::printf("== %s ==\n", report.c_str());
    if (attrs.empty()) std::printf("  (empty)\n");
    for (const auto& a : attrs) {
        // lteopinfo's RLC arrays are tables of bearers, umtsopinfo's QoS
        // profile a table of its members, rather than one JSON line.
        if (a.encoding == "json" && IsTabledArray(a.name)) {
            if (auto table = NumberedArrayTable(a.name, a.value, 2)) {
                std::printf("%s", table->c_str());
                continue;
            }
        }
        if (a.encoding == "json" && a.name == "versions" && PrintVersionsTable(a)) continue;
        std::printf("  %-*s  %s\n", static_cast<int>(width), a.name.c_str(), a.value.c_str());
    }
}

int ShowReports(const std::vector<std::string>& reports, bool json, int timeout_ms, int& next_id) {
    int status = 0;
    nlohmann::ordered_json all = nlohmann::ordered_json::object();
    for (const auto& name : reports) {
        const fieldtest::ReportInfo* info = FindReport(name);
        std::vector<Attribute> attrs;
        std::string error = fieldtest::FetchReport(*info, next_id++, timeout_ms, &attrs);
        if (!error.empty()) {
            std::fprintf(stderr, "fieldtest: %s: %s\n", name.c_str(), error.c_str());
            status = 3;
            continue;
        }
        if (json)
            all[name] = fieldtest::ToJson(attrs);
        else
            PrintTable(name + " (" + info->status_object + ")", attrs);
    }
    if (json) std::printf("%s\n", fieldtest::JsonText(all, 2).c_str());
    std::fflush(stdout);
    return status;
}

// True when diag/config already holds every line of `message`.
bool AlreadyHeld(const std::string& message) {
    std::string now = fieldtest::ReadObject(fieldtest::kConfigPath);
    for (size_t at = 0; at < message.size();) {
        size_t end = message.find('\n', at);
        if (now.find("\n" + message.substr(at, end + 1 - at)) == std::string::npos) return false;
        at = end + 1;
    }
    return true;
}

// Writes the settings, waits until the daemon has applied them, and shows
// what diag/config then holds: the daemon writes a refused change back.
int SetSettings(const std::vector<std::string>& settings, int timeout_ms, int& next_id) {
    std::string message;
    for (const auto& s : settings) {
        auto eq = s.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "fieldtest: set: expected NAME=VALUE, got '%s'\n", s.c_str());
            return 2;
        }
        std::string reason = CheckSetting(s.substr(0, eq), s.substr(eq + 1));
        if (!reason.empty()) {
            std::fprintf(stderr, "fieldtest: set: %s\n", reason.c_str());
            return 2;
        }
        message += s.substr(0, eq) + "::" + s.substr(eq + 1) + "\n";
    }
    if (AlreadyHeld(message)) {
        // The broker passes on no change, so the daemon applies nothing.
        std::printf("diag/config already holds this; nothing changes\n");
        PrintTable("diag/config",
                   fieldtest::ParseAttributes(fieldtest::ReadObject(fieldtest::kConfigPath)));
        return 0;
    }
    // A delta reader opened first sees the write arrive; the daemon may
    // write a value back at once, so the object itself may never show it.
    int watch = pps_open((std::string(fieldtest::kConfigPath) + "?delta").c_str(), O_RDONLY);
    if (watch >= 0) fieldtest::ReadMessage(watch, 1000);  // the copy at the open
    std::string written = fieldtest::WriteConfigText(message);
    if (!written.empty()) {
        std::fprintf(stderr, "fieldtest: %s\n", written.c_str());
        if (watch >= 0) ::close(watch);
        return 1;
    }
    bool landed = watch >= 0 && !fieldtest::ReadMessage(watch, timeout_ms).empty();
    if (watch >= 0) ::close(watch);
    // The daemon serves its requests first and then its watchers, in one
    // pass: the answer to a request sent once the write has landed may come
    // before the change is applied, the answer to the next one after it.
    int status = 0;
    if (!landed) {
        std::fprintf(stderr, "fieldtest: set: the change did not show in %s\n",
                     fieldtest::kConfigPath);
        status = 1;
    } else {
        for (int round = 0; round < 2; ++round) {
            std::string error = fieldtest::Ask("radiostats", next_id++, timeout_ms);
            if (error.empty()) continue;
            std::fprintf(stderr, "fieldtest: set: written, not known to be applied: %s\n",
                         error.c_str());
            status = 3;
            break;
        }
    }
    PrintTable("diag/config",
               fieldtest::ParseAttributes(fieldtest::ReadObject(fieldtest::kConfigPath)));
    std::fflush(stdout);
    return status;
}

// Serves the web screen (or only records, without `page`) until SIGINT or
// SIGTERM; the recording is closed whole before the program ends.
// The signals that stop serve and publish, blocked in every thread but
// the one that waits for them.
sigset_t BlockStopSignals() {
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    return stop_signals;
}

// Publishes this device's reports until SIGINT or SIGTERM.
int Publish(fieldtest::PublishOptions options) {
    sigset_t stop_signals = BlockStopSignals();
    fieldtest::MqttPublisher publisher(options);
    std::string error;
    if (!publisher.Start(&error)) {
        std::fprintf(stderr, "fieldtest: publish: %s\n", error.c_str());
        return 1;
    }
    std::thread stopper([&] {
        int signal_number = 0;
        sigwait(&stop_signals, &signal_number);
        publisher.Stop();
    });
    std::printf("fieldtest: publishing %s to %s:%d as radio_tavora/%s/ (settings %s)\n",
                options.reports.size() == 1 ? options.reports[0].c_str() : "the reports",
                options.mqtt.host.c_str(), options.mqtt.port, options.device.c_str(),
                options.accept_settings ? "accepted" : "ignored");
    std::fflush(stdout);
    publisher.Run();
    pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();
    return 0;
}

int Serve(const std::string& listen, double interval_s, int timeout_ms,
          const std::string& record_dir, const std::string& gpsd, bool page,
          const fieldtest::MqttOptions* mqtt) {
    const char* verb = page ? "serve" : "record";
    fieldtest::WebScreenOptions options;
    options.record_dir = record_dir;
    options.page = page;
    if (!fieldtest::ParseListenAddress(listen, &options.host, &options.port)) {
        std::fprintf(stderr, "fieldtest: serve: --listen wants ADDR:PORT, got '%s'\n",
                     listen.c_str());
        return 2;
    }
    if (mqtt != nullptr) {
        options.fleet = true;
        options.mqtt = *mqtt;
        // A persistent session: the broker queues the devices' samples for
        // this screen while it is away, under an id that stays the same
        // from one start to the next (and differs for another screen).
        options.mqtt.clean_session = false;
        if (options.mqtt.client_id.empty()) {
            char host[256] = "";
            ::gethostname(host, sizeof host - 1);
            options.mqtt.client_id = std::string("radio_tavora-") + verb + "-" + host +
                                     (page ? "-" + std::to_string(options.port) : "");
        }
    }
    options.interval_s = interval_s;
    options.timeout_ms = timeout_ms;
    options.chart_js_path = RT_CHART_JS_PATH;
    options.leaflet_dir = RT_LEAFLET_DIR;
    if (!gpsd.empty() &&
        !fieldtest::ParseGpsdAddress(gpsd, &options.gpsd_host, &options.gpsd_port)) {
        std::fprintf(stderr, "fieldtest: %s: --gpsd wants HOST[:PORT], got '%s'\n", verb,
                     gpsd.c_str());
        return 2;
    }
    // Signals are taken by one thread of our own; the server's threads
    // inherit the mask and never see them.
    sigset_t stop_signals = BlockStopSignals();
    fieldtest::WebScreen screen(options);
    std::string error;
    if (!screen.Listen(&error)) {
        std::fprintf(stderr, "fieldtest: %s: %s\n", verb, error.c_str());
        return 1;
    }
    std::thread stopper([&] {
        int signal_number = 0;
        sigwait(&stop_signals, &signal_number);
        screen.Stop();
    });
    if (!record_dir.empty())
        std::printf("fieldtest: recording to %s\n", options.record_dir.c_str());
    if (page)
        std::printf("fieldtest: the field-test screen is on http://%s:%d/\n", options.host.c_str(),
                    options.port);
    std::fflush(stdout);
    screen.Run();
    pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();  // its Stop has closed the recording
    if (!record_dir.empty())
        std::fprintf(stderr, "fieldtest: %s\n", screen.RecordingSummary().c_str());
    return 0;
}

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: fieldtest [--json] [--timeout SEC] [REPORT... | all]\n"
                 "       fieldtest watch [--json] [--interval SEC] [--count N] [REPORT... | all]\n"
                 "       fieldtest set NAME=VALUE...\n"
                 "       fieldtest serve [--listen ADDR:PORT] [--interval SEC] [--record DIR]\n"
                 "                       [--gpsd [HOST[:PORT]]]\n"
                 "       fieldtest record [--interval SEC] [--gpsd [HOST[:PORT]]] DIR\n"
                 "       fieldtest publish --mqtt HOST[:PORT] --device NAME [--interval SEC]\n"
                 "                         [--reports REPORT,...] [--accept-settings]\n"
                 "                         [--keepalive SEC]\n"
                 "\n"
                 "Asks radio_tavora for reports the way the field-test screen does and shows\n"
                 "them, or changes its settings in diag/config. serve does both on a web page\n"
                 "with live reports, plots and the settings; --record DIR (or record, with\n"
                 "no page) writes every sample to a CSV file in DIR as it is taken.\n"
                 "\n"
                 "Reports: radionwinfo radiostats umtsopinfo hspaopinfo lteopinfo bearer\n"
                 "         tchtxpwr 3gpp2info\n"
                 "         dmstats (the DIAG library's packet counts, read without a request)\n"
                 "         all, or none named: the eight reports\n"
                 "Settings: diaglogmask tether_enable ens_value apn_name enabled_rats\n"
                 "          evdo_enable onex_enable ims_enable (e.g. diaglogmask=1)\n"
                 "          switches are 0 or 1; enabled_rats is a menu name such as\n"
                 "          WCDMA+LTE. set shows diag/config once the daemon has applied\n"
                 "          the change, with any value it wrote back.\n"
                 "\n"
                 "Options:\n"
                 "  --json          print the reports as one JSON object\n"
                 "  --timeout SEC   how long to wait for each reply (default 5)\n"
                 "  --interval SEC  watch, serve: time between rounds (default 2)\n"
                 "  --count N       watch: number of rounds (default: until interrupted)\n"
                 "  --listen A:P    serve: the address to serve on (default 127.0.0.1:8080)\n"
                 "  --record DIR    serve: record every sample to CSV files in DIR\n"
                 "  --gpsd [HOST[:PORT]]  serve, record: each sample's position from gpsd\n"
                 "                  (localhost and port 2947 when not given)\n"
                 "  --mqtt HOST[:PORT]  publish: the broker to publish to; serve, record:\n"
                 "                  every device's samples from it instead of the local\n"
                 "                  daemon (port 1883 when not given)\n"
                 "  --device NAME   publish: this device's name in the topics\n"
                 "                  radio_tavora/NAME/REPORT, /status, /config, /set\n"
                 "  --reports A,B   publish: these reports only (default: the eight)\n"
                 "  --accept-settings  publish: apply NAME=VALUE lines sent to\n"
                 "                  radio_tavora/NAME/set (checked as set checks them)\n"
                 "  --keepalive SEC  publish: the MQTT keep-alive, 5 to 65535 (default 10);\n"
                 "                  a device that goes silent is said offline by the broker\n"
                 "                  after 1.5 times this\n"
                 "  --client-id ID  --mqtt's client id (publish: radio_tavora-NAME; serve,\n"
                 "                  record: radio_tavora-serve-HOSTNAME-PORT,\n"
                 "                  radio_tavora-record-HOSTNAME). serve and record keep a\n"
                 "                  persistent session under it: the broker queues the\n"
                 "                  samples published while they are away (QoS 1)\n"
                 "  --tls-ca FILE   --mqtt over TLS, the broker checked against this CA\n"
                 "  --username NAME, --password-file FILE  --mqtt's credentials\n"
                 "The PPS broker is found through PPS_SOCKET (default %s).\n"
                 "Exit status: 0 ok, 1 error, 2 usage, 3 a report got no reply.\n",
                 kPpsDefaultSocket);
}

}  // namespace

int main(int argc, char** argv) {
    std::string verb;
    if (argc > 1 && (std::strcmp(argv[1], "watch") == 0 || std::strcmp(argv[1], "set") == 0 ||
                     std::strcmp(argv[1], "serve") == 0 || std::strcmp(argv[1], "record") == 0 ||
                     std::strcmp(argv[1], "publish") == 0)) {
        verb = argv[1];
        --argc;
        ++argv;
    }
    bool json = false;
    double timeout_s = 5, interval_s = 2;
    long count = -1;
    long keepalive_s = fieldtest::MqttOptions().keepalive_s;
    std::string listen = "127.0.0.1:8080";
    std::string record_dir, gpsd, mqtt, device, reports, password_file;
    bool accept_settings = false;
    fieldtest::MqttOptions mqtt_options;
    static const option kOptions[] = {
        {"json", no_argument, nullptr, 'j'},
        {"timeout", required_argument, nullptr, 't'},
        {"interval", required_argument, nullptr, 'i'},
        {"count", required_argument, nullptr, 'c'},
        {"listen", required_argument, nullptr, 'l'},
        {"record", required_argument, nullptr, 'r'},
        {"gpsd", optional_argument, nullptr, 'g'},
        {"mqtt", required_argument, nullptr, 'm'},
        {"device", required_argument, nullptr, 'd'},
        {"reports", required_argument, nullptr, 'R'},
        {"accept-settings", no_argument, nullptr, 'A'},
        {"tls-ca", required_argument, nullptr, 'T'},
        {"username", required_argument, nullptr, 'u'},
        {"password-file", required_argument, nullptr, 'p'},
        {"keepalive", required_argument, nullptr, 'k'},
        {"client-id", required_argument, nullptr, 'C'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    for (int opt; (opt = getopt_long(argc, argv, "+", kOptions, nullptr)) != -1;) {
        char* end = nullptr;
        switch (opt) {
            case 'j':
                json = true;
                break;
            case 't':
                timeout_s = std::strtod(optarg, &end);
                break;
            case 'i':
                interval_s = std::strtod(optarg, &end);
                break;
            case 'c':
                count = std::strtol(optarg, &end, 10);
                break;
            case 'l':
                listen = optarg;
                break;
            case 'r':
                record_dir = optarg;
                break;
            case 'g':
                // A bare --gpsd asks the local gpsd. The address may follow
                // as the next word, except for record's final DIR.
                if (optarg != nullptr) {
                    gpsd = optarg;
                } else if (optind < argc && argv[optind][0] != '-' &&
                           !(verb == "record" && optind == argc - 1)) {
                    gpsd = argv[optind++];
                } else {
                    gpsd = "localhost";
                }
                break;
            case 'm':
                mqtt = optarg;
                break;
            case 'd':
                device = optarg;
                break;
            case 'R':
                reports = optarg;
                break;
            case 'A':
                accept_settings = true;
                break;
            case 'T':
                mqtt_options.tls_ca = optarg;
                break;
            case 'u':
                mqtt_options.username = optarg;
                break;
            case 'p':
                password_file = optarg;
                break;
            case 'k':
                keepalive_s = std::strtol(optarg, &end, 10);
                break;
            case 'C':
                mqtt_options.client_id = optarg;
                break;
            case 'h':
                Usage(stdout);
                return 0;
            default:
                Usage(stderr);
                return 2;
        }
        if (end != nullptr && (*end != '\0' || end == optarg)) {
            std::fprintf(stderr, "fieldtest: not a number: '%s'\n", optarg);
            return 2;
        }
    }
    std::vector<std::string> args(argv + optind, argv + argc);
    if (!mqtt.empty() &&
        !fieldtest::ParseMqttAddress(mqtt, &mqtt_options.host, &mqtt_options.port)) {
        std::fprintf(stderr, "fieldtest: --mqtt wants HOST[:PORT], got '%s'\n", mqtt.c_str());
        return 2;
    }
    if (keepalive_s < fieldtest::kMinKeepalive || keepalive_s > fieldtest::kMaxKeepalive) {
        std::fprintf(stderr, "fieldtest: --keepalive wants %d to %d seconds\n",
                     fieldtest::kMinKeepalive, fieldtest::kMaxKeepalive);
        return 2;
    }
    mqtt_options.keepalive_s = static_cast<int>(keepalive_s);
    if (!password_file.empty() &&
        !fieldtest::ReadSecretFile(password_file, &mqtt_options.password)) {
        std::fprintf(stderr, "fieldtest: cannot read --password-file %s: %s\n",
                     password_file.c_str(), std::strerror(errno));
        return 2;
    }
    const fieldtest::MqttOptions* fleet = mqtt.empty() ? nullptr : &mqtt_options;
    if (verb == "publish") {
        if (!args.empty() || mqtt.empty() || !fieldtest::IsTopicLevel(device)) {
            std::fprintf(stderr,
                         "fieldtest: publish wants --mqtt HOST[:PORT] and --device NAME (no '/', "
                         "'+' or '#')\n");
            return 2;
        }
        fieldtest::PublishOptions options;
        options.mqtt = mqtt_options;
        if (options.mqtt.client_id.empty()) options.mqtt.client_id = "radio_tavora-" + device;
        options.device = device;
        options.interval_s = interval_s;
        options.timeout_ms = static_cast<int>(timeout_s * 1000);
        options.accept_settings = accept_settings;
        for (size_t at = 0; at <= reports.size() && !reports.empty();) {
            size_t end = std::min(reports.find(',', at), reports.size());
            std::string name = reports.substr(at, end - at);
            if (FindReport(name) == nullptr) {
                std::fprintf(stderr, "fieldtest: unknown report '%s' (see --help)\n", name.c_str());
                return 2;
            }
            options.reports.push_back(name);
            at = end + 1;
        }
        if (options.reports.empty())
            for (const auto& report : fieldtest::Reports())
                if (report.asked) options.reports.push_back(report.name);
        return Publish(std::move(options));
    }
    if (verb == "serve") {
        if (!args.empty()) {
            Usage(stderr);
            return 2;
        }
        return Serve(listen, interval_s, static_cast<int>(timeout_s * 1000), record_dir, gpsd, true,
                     fleet);
    }
    if (verb == "record") {
        if (args.size() != 1 || !record_dir.empty()) {
            Usage(stderr);
            return 2;
        }
        return Serve(listen, interval_s, static_cast<int>(timeout_s * 1000), args[0], gpsd, false,
                     fleet);
    }
    int next_id = static_cast<int>(::getpid() % 10000) * 1000;
    const int timeout_ms = static_cast<int>(timeout_s * 1000);
    if (verb == "set") {
        if (args.empty()) {
            Usage(stderr);
            return 2;
        }
        return SetSettings(args, timeout_ms, next_id);
    }
    // No report named, or "all": the eight requests, each from its own source.
    if (args.empty() || (args.size() == 1 && args[0] == "all")) {
        args.clear();
        for (const auto& report : fieldtest::Reports())
            if (report.asked) args.push_back(report.name);
    }
    for (const auto& name : args) {
        if (FindReport(name) == nullptr) {
            std::fprintf(stderr, "fieldtest: unknown report '%s' (see --help)\n", name.c_str());
            return 2;
        }
    }
    if (verb != "watch") return ShowReports(args, json, timeout_ms, next_id);
    int status = 0;
    for (long round = 0; count < 0 || round < count; ++round) {
        if (round > 0)
            std::this_thread::sleep_for(
                std::chrono::milliseconds(static_cast<int>(interval_s * 1000)));
        if (!json) std::printf("\n-- round %ld --\n", round + 1);
        status = ShowReports(args, json, timeout_ms, next_id);
    }
    return status;
}
