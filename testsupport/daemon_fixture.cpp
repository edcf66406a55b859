#include "testsupport/daemon_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "platform/pps/pps_client.h"

namespace rt::test {

namespace {

std::string JoinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

// A JSON string literal for plain text.
std::string JsonString(const std::string& text) {
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace

PpsClientConnection::PpsClientConnection(const std::string& path, int flags) {
    fd_ = pps_open(path.c_str(), flags < 0 ? O_RDWR : flags, 0666);
}

PpsClientConnection::~PpsClientConnection() {
    if (fd_ >= 0) ::close(fd_);
}

bool PpsClientConnection::Write(const std::string& text) {
    if (fd_ < 0) return false;
    return ::write(fd_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

std::string PpsClientConnection::Read(int timeout_ms) {
    if (fd_ < 0) return "";
    pollfd entry{fd_, POLLIN, 0};
    int ready = ::poll(&entry, 1, timeout_ms);
    if (ready <= 0 || (entry.revents & POLLIN) == 0) return "";
    char buffer[65536];
    ssize_t n = ::read(fd_, buffer, sizeof buffer);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
}

DaemonFixture::DaemonFixture(DaemonOptions options) : options_(std::move(options)) {
    broker_ = std::make_unique<PpsBroker>();
    if (options_.create_config) {
        if (!WriteObject(kConfigObject, JoinLines(options_.config_lines)))
            throw std::runtime_error("cannot create diag/config");
    }
    if (options_.start_devsim) {
        StartDevsim();
    } else {
        if (options_.create_status_persistent) {
            if (!WriteObject(kStatusPersistentObject, ""))
                throw std::runtime_error("cannot create status_persistent");
        }
        if (options_.create_deviceinfo) {
            if (!WriteObject(kDeviceInfoObject, "HardwareID::" + options_.hardware_id + "\n"))
                throw std::runtime_error("cannot create deviceinfo");
        }
        if (options_.create_omadm_control) {
            if (!WriteObject(kOmadmControlObject, ""))
                throw std::runtime_error("cannot create the OMA-DM control object");
        }
    }
    if (options_.start) Start();
}

DaemonFixture::~DaemonFixture() {
    // The daemon goes before the services it asks, and they before the broker.
    daemon_.reset();
    devsim_.reset();
    broker_.reset();
}

void DaemonFixture::StartDevsim() {
    std::string scenario = "{";
    scenario += "\"deviceinfo\": ";
    scenario += options_.create_deviceinfo
                    ? "{\"HardwareID\": " + JsonString(options_.hardware_id) + "}"
                    : "null";
    if (!options_.create_status_persistent) scenario += ", \"status_persistent\": null";
    scenario += ", \"omadm\": {\"serve\": ";
    scenario += options_.create_omadm_control ? "true" : "false";
    scenario += "}}";
    std::vector<std::string> argv{BinPath("devsim"), "--scenario",
                                  scenario_dir_.file("fixture.json")};
    std::ofstream(argv.back()) << scenario;
    if (!options_.devsim_scenario.empty()) {
        argv.insert(argv.end(), {"--scenario", scenario_dir_.file("test.json")});
        std::ofstream(argv.back()) << options_.devsim_scenario;
    }
    devsim_ = std::make_unique<ChildProcess>(argv, std::vector<std::string>{broker_->env()});
    if (!devsim_->WaitForStderr("devsim: ready"))
        throw std::runtime_error("devsim did not start: " + devsim_->Stderr());
}

bool DaemonFixture::Start() {
    std::vector<std::string> argv{BinPath("radio_tavora")};
    argv.insert(argv.end(), options_.args.begin(), options_.args.end());
    std::vector<std::string> env{"SLOGF_STDERR=1", broker_->env()};
    env.insert(env.end(), options_.env.begin(), options_.env.end());
    daemon_ = std::make_unique<ChildProcess>(argv, env);
    started_ = daemon_->WaitForStderr(kStartedLine);
    return started_;
}

bool DaemonFixture::WriteObject(const std::string& path, const std::string& text) {
    // Write-only: a read-write handle is sent the object's contents, and
    // closing it with those unread can lose the write just made.
    {
        PpsClientConnection object(path, O_WRONLY | O_CREAT);
        if (!object.ok()) return false;
        if (text.empty()) return true;
        if (!object.Write(text)) return false;
    }
    // Another connection may be served before this write lands: wait until
    // a reader sees every attribute line written (and no deleted one).
    return Eventually([&] {
        std::string now = ReadObject(path);
        bool landed = true;
        size_t at = 0;
        while (landed && at < text.size()) {
            size_t end = text.find('\n', at);
            if (end == std::string::npos) end = text.size();
            std::string line = text.substr(at, end - at);
            at = end + 1;
            if (line.empty() || line[0] == '@') continue;
            if (line[0] == '-') {
                landed = now.find("\n" + line.substr(1) + ":") == std::string::npos;
            } else {
                landed = now.find("\n" + line + "\n") != std::string::npos;
            }
        }
        return landed;
    });
}

bool DaemonFixture::WriteConfig(const std::vector<std::string>& lines) {
    PpsClientConnection config(kConfigObject, O_WRONLY);
    return config.ok() && config.Write(JoinLines(lines));
}

std::string DaemonFixture::Request(const std::string& msg, const std::string& id,
                                   const std::optional<std::string>& dat, int timeout_ms) {
    std::string text = "msg::" + msg + "\nid::" + id + "\n";
    if (dat) text += "dat::" + *dat + "\n";
    PpsClientConnection control(kControlObject, O_RDWR);
    if (!control.ok() || !control.Write(text)) return "";
    // Anything but a reply (res) is not ours to return; keep waiting.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) return "";
        std::string reply = control.Read(static_cast<int>(left));
        if (reply.find("\nres:") != std::string::npos) return reply;
        if (reply.empty()) return "";
    }
}

std::string DaemonFixture::ReadObject(const std::string& path) {
    PpsClientConnection object(path, O_RDONLY);
    return object.ok() ? object.Read(1000) : "";
}

std::string DaemonFixture::ReportHolding(const std::string& request, const std::string& object,
                                         const std::vector<std::string>& lines) {
    std::string report;
    Eventually([&] {
        std::string reply = Request(request, "31");
        if (reply.find("res::" + request + "\n") == std::string::npos) {
            report = reply;
            return true;  // no answer at all: show it rather than ask again
        }
        report = ReadObject(object);
        return std::all_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return report.find(line + "\n") != std::string::npos;
        });
    });
    return report;
}

bool DaemonFixture::ObjectHolds(const std::string& path, const std::string& needle) {
    return Eventually([&] { return ReadObject(path).find(needle) != std::string::npos; });
}

int DaemonFixture::Stop(int signal_number, int timeout_ms) {
    if (!daemon_) return -1;
    daemon_->Signal(signal_number);
    return daemon_->Wait(timeout_ms);
}

}  // namespace rt::test
