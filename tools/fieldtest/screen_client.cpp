#include "tools/fieldtest/screen_client.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/pps/pps_client.h"
#include "platform/pps/ppsparse.h"

namespace fieldtest {

namespace {

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

using Clock = std::chrono::steady_clock;

}  // namespace

std::span<const ReportInfo> Reports() {
    return kReports;
}

const ReportInfo* FindReport(const std::string& name) {
    for (const auto& report : kReports)
        if (name == report.name) return &report;
    return nullptr;
}

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

std::string ReadMessage(int fd, int timeout_ms) {
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
    std::string text = ReadMessage(fd, 1000);
    ::close(fd);
    return text;
}

std::string Ask(const std::string& report, int request_id, int timeout_ms) {
    // As a client of the daemon's server object: with no daemon serving it,
    // the request would otherwise land in a leftover plain object.
    // No server (ENXIO), or no object because no daemon has run (ENOENT).
    int fd = pps_open_client(kControlPath, O_RDWR);
    if (fd < 0 && (errno == ENXIO || errno == ENOENT))
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
        std::string reply = ReadMessage(fd, 0);
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

std::string FetchReport(const ReportInfo& report, int request_id, int timeout_ms,
                        std::vector<Attribute>* attributes) {
    std::string error = report.asked ? Ask(report.name, request_id, timeout_ms) : "";
    if (!error.empty()) return error;
    *attributes = ParseAttributes(ReadObject(std::string(kStatusDir) + report.status_object));
    return {};
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

std::string JsonText(const nlohmann::ordered_json& json, int indent) {
    return json.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string WriteConfig(const std::vector<std::pair<std::string, std::string>>& settings) {
    std::string message;
    for (const auto& [name, value] : settings) message += name + "::" + value + "\n";
    return WriteConfigText(message);
}

std::string WriteConfigText(const std::string& message) {
    int fd = pps_open(kConfigPath, O_WRONLY | O_CREAT, kConfigMode);
    if (fd < 0) return std::string(kConfigPath) + ": " + std::strerror(errno);
    if (::write(fd, message.data(), message.size()) != static_cast<ssize_t>(message.size())) {
        std::string error = std::string("write ") + kConfigPath + ": " + std::strerror(errno);
        ::close(fd);
        return error;
    }
    // Written only once the broker confirms it applied and stored it.
    int code = pps_sync(fd, kConfirmWaitMs);
    ::close(fd);
    if (code == 0) return "";
    return std::string("write ") + kConfigPath + ": not confirmed: " + std::strerror(code);
}

}  // namespace fieldtest
