// fieldtest: what the field-test screen does with radio_tavora.
//
//   fieldtest [--json] [--timeout SEC] [REPORT... | all]   ask for reports, show them
//   fieldtest watch [--interval SEC] [--count N] [REPORT... | all]
//   fieldtest set NAME=VALUE...                     change settings in diag/config
//
// A report is asked for by writing msg/id to the daemon's server object as
// a client; once the reply with the same id is back, the report's status
// object is read and shown as a table of attributes (or as JSON).
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <unistd.h>

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
#include "platform/pps/ppsparse.h"
#include "tools/fieldtest/numbered_array_table.h"

namespace {

constexpr const char* kControlPath = "/pps/services/radioctrl/modem0/diag/control";
constexpr const char* kConfigPath = "/pps/services/radioctrl/modem0/diag/config";
constexpr const char* kStatusDir = "/pps/services/radioctrl/modem0/diag/";

struct ReportInfo {
    const char* name;
    const char* status_object;
    bool asked = true;  // false: an object read as it stands, with no request
};

// The daemon's eight requests and the status object each report lands in.
constexpr ReportInfo kReports[] = {
    {"radionwinfo", "status_utra"},
    {"radiostats", "status_utra"},
    {"umtsopinfo", "status_utra"},
    {"hspaopinfo", "status_utra"},
    {"lteopinfo", "status_eutra"},
    {"bearer", "status_data"},
    {"tchtxpwr", "status_utra"},
    {"3gpp2info", "status_3gpp2"},
    // The DM library's counts: packets per code and version delivered,
    // translated and dropped, bad frames, replay progress.
    {"dmstats", "dm_stats", false},
};

const ReportInfo* FindReport(const std::string& name) {
    for (const auto& report : kReports)
        if (name == report.name) return &report;
    return nullptr;
}

struct Attribute {
    std::string name;
    std::string encoding;
    std::string value;
};

// Attribute lines of one PPS message, in order.
std::vector<Attribute> ParseAttributes(std::string text) {
    std::vector<Attribute> out;
    char* cursor = text.data();
    pps_attrib_t info{};
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
        if (kind == PPS_END || kind == PPS_ERROR) break;
        if (kind == PPS_ATTRIBUTE) out.push_back({info.attr_name, info.encoding, info.value});
    }
    return out;
}

std::string ReadOnce(int fd, int timeout_ms) {
    pollfd pfd{fd, POLLIN, 0};
    if (::poll(&pfd, 1, timeout_ms) <= 0) return {};
    std::string buf(64 * 1024, '\0');
    ssize_t n = ::read(fd, buf.data(), buf.size() - 1);
    if (n <= 0) return {};
    buf.resize(static_cast<size_t>(n));
    return buf;
}

std::string ReadObject(const std::string& path) {
    int fd = pps_open(path.c_str(), O_RDONLY);
    if (fd < 0) return {};
    std::string text = ReadOnce(fd, 1000);
    ::close(fd);
    return text;
}

using Clock = std::chrono::steady_clock;

// Sends one request and waits for the reply carrying the same id.
// Returns an error text, empty on success.
std::string Ask(const std::string& report, int request_id, int timeout_ms) {
    // As a client of the daemon's server object: with no daemon serving it,
    // the request would otherwise land in a leftover plain object.
    int fd = pps_open_client(kControlPath, O_RDWR);
    if (fd < 0 && errno == ENXIO)
        return "radio_tavora is not running (no server for " + std::string(kControlPath) + ")";
    if (fd < 0) return std::string("cannot open ") + kControlPath + ": " + std::strerror(errno);
    std::string request = "msg::" + report + "\nid::" + std::to_string(request_id) + "\n";
    if (::write(fd, request.data(), request.size()) < 0) {
        std::string error = std::string("cannot send request: ") + std::strerror(errno);
        ::close(fd);
        return error;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    std::string error =
        "no reply within " + std::to_string(timeout_ms / 1000.0).substr(0, 4) + " s";
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) break;
        pollfd pfd{fd, POLLIN, 0};
        if (::poll(&pfd, 1, static_cast<int>(left.count())) <= 0) continue;
        std::string reply = ReadOnce(fd, 0);
        if (reply.empty()) {  // the broker or the server went away
            error = "the connection to the daemon closed";
            break;
        }
        bool ours = false;
        for (const auto& attr : ParseAttributes(reply))
            if (attr.name == "id" && attr.value == std::to_string(request_id)) ours = true;
        if (ours) {
            error.clear();
            break;
        }
    }
    ::close(fd);
    return error;
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
        std::printf("  %-*s  %s\n", static_cast<int>(width), a.name.c_str(), a.value.c_str());
    }
}

nlohmann::ordered_json ToJson(const std::vector<Attribute>& attrs) {
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    for (const auto& a : attrs) {
        if (a.encoding == "json" || a.encoding == "n" || a.encoding == "b") {
            auto parsed = nlohmann::ordered_json::parse(a.value, nullptr, false);
            out[a.name] = parsed.is_discarded() ? nlohmann::ordered_json(a.value) : parsed;
        } else {
            out[a.name] = a.value;
        }
    }
    return out;
}

int ShowReports(const std::vector<std::string>& reports, bool json, int timeout_ms, int& next_id) {
    int status = 0;
    nlohmann::ordered_json all = nlohmann::ordered_json::object();
    for (const auto& name : reports) {
        const ReportInfo* info = FindReport(name);
        std::string error = info->asked ? Ask(name, next_id++, timeout_ms) : "";
        if (!error.empty()) {
            std::fprintf(stderr, "fieldtest: %s: %s\n", name.c_str(), error.c_str());
            status = 3;
            continue;
        }
        auto attrs = ParseAttributes(ReadObject(std::string(kStatusDir) + info->status_object));
        if (json)
            all[name] = ToJson(attrs);
        else
            PrintTable(name + " (" + info->status_object + ")", attrs);
    }
    if (json) std::printf("%s\n", all.dump(2).c_str());
    std::fflush(stdout);
    return status;
}

int SetSettings(const std::vector<std::string>& settings) {
    std::string message;
    for (const auto& s : settings) {
        auto eq = s.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "fieldtest: set: expected NAME=VALUE, got '%s'\n", s.c_str());
            return 2;
        }
        message += s.substr(0, eq) + "::" + s.substr(eq + 1) + "\n";
    }
    int fd = pps_open(kConfigPath, O_WRONLY | O_CREAT, 0666);
    if (fd < 0) {
        std::fprintf(stderr, "fieldtest: %s: %s\n", kConfigPath, std::strerror(errno));
        return 1;
    }
    bool ok = ::write(fd, message.data(), message.size()) == static_cast<ssize_t>(message.size());
    ::close(fd);
    if (!ok) std::fprintf(stderr, "fieldtest: write %s: %s\n", kConfigPath, std::strerror(errno));
    return ok ? 0 : 1;
}

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: fieldtest [--json] [--timeout SEC] [REPORT... | all]\n"
                 "       fieldtest watch [--json] [--interval SEC] [--count N] [REPORT... | all]\n"
                 "       fieldtest set NAME=VALUE...\n"
                 "\n"
                 "Asks radio_tavora for reports the way the field-test screen does and shows\n"
                 "them, or changes its settings in diag/config.\n"
                 "\n"
                 "Reports: radionwinfo radiostats umtsopinfo hspaopinfo lteopinfo bearer\n"
                 "         tchtxpwr 3gpp2info\n"
                 "         dmstats (the DIAG library's packet counts, read without a request)\n"
                 "         all, or none named: the eight reports\n"
                 "Settings: diaglogmask tether_enable ens_value apn_name enabled_rats\n"
                 "          evdo_enable onex_enable ims_enable (e.g. diaglogmask=1)\n"
                 "\n"
                 "Options:\n"
                 "  --json          print the reports as one JSON object\n"
                 "  --timeout SEC   how long to wait for each reply (default 5)\n"
                 "  --interval SEC  watch: time between rounds (default 2)\n"
                 "  --count N       watch: number of rounds (default: until interrupted)\n"
                 "The PPS broker is found through PPS_SOCKET (default %s).\n"
                 "Exit status: 0 ok, 1 error, 2 usage, 3 a report got no reply.\n",
                 kPpsDefaultSocket);
}

}  // namespace

int main(int argc, char** argv) {
    std::string verb;
    if (argc > 1 && (std::strcmp(argv[1], "watch") == 0 || std::strcmp(argv[1], "set") == 0)) {
        verb = argv[1];
        --argc;
        ++argv;
    }
    bool json = false;
    double timeout_s = 5, interval_s = 2;
    long count = -1;
    static const option kOptions[] = {
        {"json", no_argument, nullptr, 'j'},           {"timeout", required_argument, nullptr, 't'},
        {"interval", required_argument, nullptr, 'i'}, {"count", required_argument, nullptr, 'c'},
        {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0},
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
    if (verb == "set") {
        if (args.empty()) {
            Usage(stderr);
            return 2;
        }
        return SetSettings(args);
    }
    // No report named, or "all": the eight requests, each from its own source.
    if (args.empty() || (args.size() == 1 && args[0] == "all")) {
        args.clear();
        for (const auto& report : kReports)
            if (report.asked) args.push_back(report.name);
    }
    for (const auto& name : args) {
        if (FindReport(name) == nullptr) {
            std::fprintf(stderr, "fieldtest: unknown report '%s' (see --help)\n", name.c_str());
            return 2;
        }
    }
    int next_id = static_cast<int>(::getpid() % 10000) * 1000;
    const int timeout_ms = static_cast<int>(timeout_s * 1000);
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
