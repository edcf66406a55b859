#include "tools/fieldtest/gpsd_client.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

namespace fieldtest {

namespace {

constexpr auto kRetry = std::chrono::seconds(2);
constexpr int kPollMs = 300;
// gpsd's objects are a few hundred bytes (SKY with many satellites a few
// kB); a longer line is not one of them and is skipped whole.
constexpr size_t kMaxLine = 64 * 1024;
constexpr const char kWatch[] = "?WATCH={\"enable\":true,\"json\":true}\n";

int Connect(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return -1;
    int fd = -1;
    for (addrinfo* a = found; a != nullptr && fd < 0; a = a->ai_next) {
        fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd >= 0 && ::connect(fd, a->ai_addr, a->ai_addrlen) != 0) {
            ::close(fd);
            fd = -1;
        }
    }
    ::freeaddrinfo(found);
    return fd;
}

}  // namespace

bool ParseGpsdAddress(const std::string& text, std::string* host, int* port) {
    size_t colon = text.rfind(':');
    *host = text.substr(0, colon);
    *port = kGpsdPort;
    if (host->empty()) return false;
    if (colon == std::string::npos) return true;
    std::string port_text = text.substr(colon + 1);
    if (port_text.empty() || port_text.size() > 5 ||
        port_text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *port = std::stoi(port_text);
    return *port >= 1 && *port <= 65535;
}

std::optional<Position> PositionFromGpsdLine(const std::string& line) {
    auto json = nlohmann::json::parse(line, nullptr, false);
    // Compared as JSON, so that a "class" of another type is simply not TPV.
    if (!json.is_object() || !json.contains("class") || json["class"] != "TPV") return std::nullopt;
    Position position;
    const auto mode = json.find("mode"), lat = json.find("lat"), lon = json.find("lon");
    if (mode == json.end() || !mode->is_number() || *mode < 2 || lat == json.end() ||
        !lat->is_number() || lon == json.end() || !lon->is_number())
        return position;
    position.known = true;
    position.latitude = *lat;
    position.longitude = *lon;
    if (auto time = json.find("time"); time != json.end() && time->is_string())
        position.fix_time = *time;
    return position;
}

GpsdClient::GpsdClient(std::string host, int port) : host_(std::move(host)), port_(port) {
    thread_ = std::thread([this] { Run(); });
}

GpsdClient::~GpsdClient() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    stop_.notify_all();
    thread_.join();
}

Position GpsdClient::Latest() {
    std::lock_guard lock(mutex_);
    return latest_;
}

nlohmann::ordered_json GpsdClient::Json() {
    std::lock_guard lock(mutex_);
    std::string where = host_ + ":" + std::to_string(port_);
    if (!connected_) return {{"known", false}, {"text", "no position: no gpsd at " + where}};
    if (!latest_.known) return {{"known", false}, {"text", "no position: gpsd has no fix"}};
    return {{"known", true},
            {"latitude", latest_.latitude},
            {"longitude", latest_.longitude},
            {"fix_time", latest_.fix_time}};
}

void GpsdClient::Run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        lock.unlock();
        int fd = Connect(host_, port_);
        if (fd >= 0) {
            bool sent = ::send(fd, kWatch, sizeof kWatch - 1, MSG_NOSIGNAL) > 0;
            if (sent) {
                lock.lock();
                connected_ = true;
                lock.unlock();
                ReadFrom(fd);
            }
            ::close(fd);
        }
        lock.lock();
        connected_ = false;
        latest_ = Position{};
        stop_.wait_for(lock, kRetry, [&] { return stopping_; });
    }
}

bool GpsdClient::ReadFrom(int fd) {
    std::string line;
    bool skipping = false;  // inside a line past kMaxLine
    char buffer[4096];
    while (true) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return true;
        }
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, kPollMs) <= 0) continue;
        ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) return false;
        for (ssize_t i = 0; i < n; ++i) {
            if (buffer[i] != '\n') {
                skipping = skipping || line.size() >= kMaxLine;
                if (skipping)
                    line.clear();
                else
                    line += buffer[i];
                continue;
            }
            if (!skipping) {
                if (auto position = PositionFromGpsdLine(line)) {
                    std::lock_guard lock(mutex_);
                    latest_ = *position;
                }
            }
            line.clear();
            skipping = false;
        }
    }
}

}  // namespace fieldtest
