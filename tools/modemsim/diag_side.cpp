#include "tools/modemsim/diag_side.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include "platform/dmux/diag_connection.h"
#include "platform/dmux/hdlc.h"
#include "platform/dmux/log_code_mask.h"
#include "tools/modemsim/lte_log_packets.h"
#include "tools/modemsim/scenario.h"
#include "tools/modemsim/wcdma_log_packets.h"
#include "tools/modemsim/world_support.h"

namespace modemsim {

namespace {

using Clock = std::chrono::steady_clock;
// How often a capture's playback reports how far it has come.
constexpr int kProgressEverySec = 5;
// A capture starts once the masks have held still this long with some code
// enabled, as a burst of mask commands comes in quick succession (a
// looping capture makes up for a late one; capture_after_masks waits for a
// count instead).
constexpr int kCaptureSettleMs = 250;
// How long a write waits for room on a full pseudo-terminal.
constexpr int kFullLineWaitMs = 100;

std::vector<uint8_t> Unescape(const uint8_t* data, size_t length) {
    std::vector<uint8_t> out;
    out.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        if (data[i] == dmux::kHdlcEscape && i + 1 < length) {
            out.push_back(data[++i] ^ dmux::kHdlcEscapeXor);
        } else {
            out.push_back(data[i]);
        }
    }
    return out;
}

// A log code written as a number or as text ("0x4125"); nullopt when it is
// neither or does not fit 16 bits.
std::optional<uint16_t> CodeFromJson(const nlohmann::json& value) {
    if (value.is_number_unsigned() && value.get<uint64_t>() <= 0xFFFF) return value.get<uint16_t>();
    if (value.is_string()) {
        if (auto code = ParseMessageIdKey(value.get<std::string>()))
            return static_cast<uint16_t>(*code);
    }
    return std::nullopt;
}

uint64_t TimestampNow() {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                  std::chrono::system_clock::now().time_since_epoch())
                  .count();
    return (static_cast<uint64_t>(ms) * 4 / 5) << 16;  // 1.25 ms units
}

std::string DescribeMask(const dmux::LogConfigSetMask& request) {
    std::ostringstream line;
    char buf[32];
    std::snprintf(buf, sizeof buf, "equip=%u last=0x%x", request.equipment_id, request.last_item);
    line << "modemsim: diag rx log-config " << buf << " mask_bytes=" << request.mask.size()
         << " set=";
    bool any = false;
    for (size_t i = 0; i < request.mask.size(); ++i) {
        if (request.mask[i] == 0) continue;
        std::snprintf(buf, sizeof buf, "%s%zu:%02x", any ? "," : "", i, request.mask[i]);
        line << buf;
        any = true;
    }
    if (!any) line << "-";
    return line.str();
}

}  // namespace

nlohmann::json DefaultDiagScenario() {
    return {
        {"status", 0},
        {"capture_pace", "real"},
        {"capture_loop", true},
        {"capture_after_masks", 0},
        {"rrc_states",
         {{{"state", 0}, {"hold_ms", 3000}},
          {{"state", 1}, {"hold_ms", 500}},
          {{"state", 2}, {"hold_ms", 2000}},
          {{"state", 3}, {"hold_ms", 6000}},
          {{"state", 2}, {"hold_ms", 2000}},
          {{"state", 4}, {"hold_ms", 4000}},
          {{"state", 5}, {"hold_ms", 4000}}}},
        {"rrc_period_ms", 500},
        {"records", nlohmann::json::array()},
    };
}

// One frame of a capture file: its bytes as in the file (escaped, with the
// closing flag) and what it carries.
struct DiagSide::CaptureFrame {
    std::vector<uint8_t> raw;
    uint16_t code;
    double timestamp_ms;
};

// One connected client: its mask and the lock that orders writes.
struct DiagSide::Session {
    int fd;
    dmux::LogCodeMask mask;
    std::mutex mutex;
    std::condition_variable changed;
    bool closed = false;
    Clock::time_point mask_changed_at{};
    unsigned masks_received = 0;

    // False once the client is gone. On a pseudo-terminal that nobody
    // reads, what does not fit within a moment is dropped, as a serial line
    // would lose it.
    bool Send(const uint8_t* data, size_t length) {
        std::lock_guard<std::mutex> hold(mutex);
        while (length > 0) {
            ssize_t n = ::send(fd, data, length, MSG_NOSIGNAL);
            if (n < 0 && errno == ENOTSOCK) n = ::write(fd, data, length);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && errno == EAGAIN) {
                pollfd pfd{fd, POLLOUT, 0};
                if (::poll(&pfd, 1, kFullLineWaitMs) > 0) continue;
                return true;
            }
            if (n <= 0) return false;
            data += n;
            length -= static_cast<size_t>(n);
        }
        return true;
    }
    // Sleeps until `when`; false once the session is closed.
    bool SleepUntil(Clock::time_point when) {
        std::unique_lock<std::mutex> hold(mutex);
        changed.wait_until(hold, when, [&] { return closed; });
        return !closed;
    }
};

DiagSide::DiagSide(std::string endpoint, std::string capture, const nlohmann::json& section,
                   std::shared_ptr<const WcdmaWorld> world, std::shared_ptr<const LteWorld> lte)
    : capture_(std::move(capture)),
      scenario_(DefaultDiagScenario()),
      world_(std::move(world)),
      lte_(std::move(lte)) {
    path_ = PtyLinkPath(endpoint);
    on_pty_ = !path_.empty();
    if (!on_pty_) path_ = endpoint.rfind("unix:", 0) == 0 ? endpoint.substr(5) : endpoint;
    if (section.is_object()) scenario_.merge_patch(section);
}

DiagSide::~DiagSide() {
    Stop();
}

bool DiagSide::LoadCapture(std::string* error) {
    std::ifstream in(capture_, std::ios::binary);
    if (!in) {
        *error = "cannot read capture " + capture_;
        return false;
    }
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                               std::istreambuf_iterator<char>()};
    size_t start = 0;
    while (start < bytes.size()) {
        auto* flag = static_cast<const uint8_t*>(
            std::memchr(bytes.data() + start, dmux::kHdlcFlag, bytes.size() - start));
        if (flag == nullptr) break;
        size_t end = static_cast<size_t>(flag - bytes.data());
        // The CRC is not checked here: a bad frame goes out as it is, for
        // the reader to reject, as it would come from a noisy line.
        std::vector<uint8_t> body = Unescape(bytes.data() + start, end - start);
        if (body.size() > 2) {
            body.resize(body.size() - 2);
            dmux::DiagFrame frame = dmux::ParseDiagFrame(body);
            if (frame.kind == dmux::DiagFrameKind::kLogPacket) {
                frames_.push_back(
                    {std::vector<uint8_t>(bytes.begin() + start, bytes.begin() + end + 1),
                     frame.log_code, dmux::LogTimestampMs(dmux::LogRecordTimestamp(frame.record))});
            }
        }
        start = end + 1;
    }
    return true;
}

bool DiagSide::Start(std::string* error) {
    if (!capture_.empty() && !LoadCapture(error)) return false;
    if (on_pty_) {
        if (!pty_.Open(path_, error)) return false;
        std::fprintf(stderr, "modemsim: diag on pty:%s\n", path_.c_str());
        accept_thread_ = std::thread([this] { Serve(pty_.master()); });
        return true;
    }
    sockaddr_un addr{};
    if (path_.empty() || path_.size() >= sizeof addr.sun_path) {
        *error = "bad diag endpoint '" + path_ + "'";
        return false;
    }
    listen_fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
    ::unlink(path_.c_str());
    if (listen_fd_ < 0 ||
        ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listen_fd_, 4) != 0) {
        *error = "diag endpoint " + path_ + ": " + std::strerror(errno);
        if (listen_fd_ >= 0) ::close(listen_fd_);
        listen_fd_ = -1;
        return false;
    }
    accept_thread_ = std::thread([this] { AcceptLoop(); });
    return true;
}

void DiagSide::Stop() {
    stopping_.store(true);
    if (accept_thread_.joinable()) accept_thread_.join();
    pty_.Close();
    if (listen_fd_ >= 0) {
        ::close(listen_fd_);
        ::unlink(path_.c_str());
        listen_fd_ = -1;
    }
}

std::vector<dmux::LogConfigSetMask> DiagSide::ReceivedMasks() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return received_;
}

void DiagSide::AcceptLoop() {
    while (!stopping_.load()) {
        pollfd pfd{listen_fd_, POLLIN, 0};
        if (::poll(&pfd, 1, 100) <= 0) continue;
        int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        std::fprintf(stderr, "modemsim: diag client connected\n");
        Serve(fd);  // one client at a time, like a DIAG port
        ::close(fd);
        std::fprintf(stderr, "modemsim: diag client disconnected\n");
    }
}

void DiagSide::Serve(int fd) {
    Session session;
    session.fd = fd;
    std::thread producer([&] { Produce(&session); });

    uint32_t status =
        static_cast<uint32_t>(std::clamp<int64_t>(Int64Or(scenario_, "status", 0), 0, UINT32_MAX));
    dmux::HdlcDeframer deframer;
    std::vector<uint8_t> buffer(65536);
    while (!stopping_.load()) {
        pollfd pfd{fd, POLLIN, 0};
        int ready = ::poll(&pfd, 1, 100);
        if (ready < 0 && errno != EINTR) break;
        if (ready <= 0) continue;
        ssize_t n = ::read(fd, buffer.data(), buffer.size());
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) break;
        deframer.Feed(buffer.data(), static_cast<size_t>(n), [&](std::span<const uint8_t> body) {
            auto request = dmux::ParseLogConfigSetMask(body);
            if (!request) {
                std::fprintf(stderr, "modemsim: diag rx command 0x%02x ignored\n", body[0]);
                return;
            }
            std::fprintf(stderr, "%s\n", DescribeMask(*request).c_str());
            {
                std::lock_guard<std::mutex> hold(mutex_);
                received_.push_back(*request);
            }
            if (status == 0)
                session.mask.SetEquipment(request->equipment_id, request->last_item, request->mask);
            auto answer = dmux::HdlcEncode(dmux::BuildLogConfigResponse(
                {dmux::kLogConfigSetMask, status, request->equipment_id, request->last_item}));
            session.Send(answer.data(), answer.size());
            std::lock_guard<std::mutex> hold(session.mutex);
            session.mask_changed_at = Clock::now();
            ++session.masks_received;
            session.changed.notify_all();
        });
    }
    {
        std::lock_guard<std::mutex> hold(session.mutex);
        session.closed = true;
        session.changed.notify_all();
    }
    ::shutdown(fd, SHUT_RDWR);
    producer.join();
}

void DiagSide::Produce(Session* session) {
    if (capture_.empty()) {
        ProduceScenario(session);
    } else {
        ProduceCapture(session);
    }
}

void DiagSide::ProduceCapture(Session* session) {
    // Start once some code is enabled and the masks have held still, so a
    // burst of mask commands is complete before the first packet; or, when
    // the scenario names a count, once that many commands have come.
    unsigned after_masks =
        static_cast<unsigned>(std::max(0, IntOr(scenario_, "capture_after_masks", 0)));
    {
        std::unique_lock<std::mutex> hold(session->mutex);
        while (!session->closed) {
            if (after_masks > 0) {
                if (session->masks_received >= after_masks) break;
                session->changed.wait_for(hold, std::chrono::milliseconds(100));
            } else if (session->mask.Any()) {
                auto settled =
                    session->mask_changed_at + std::chrono::milliseconds(kCaptureSettleMs);
                if (Clock::now() >= settled) break;
                session->changed.wait_until(hold, settled);
            } else {
                session->changed.wait_for(hold, std::chrono::milliseconds(100));
            }
        }
        if (session->closed) return;
    }
    bool paced = scenario_.value("capture_pace", std::string("real")) == "real";
    bool loop = scenario_.value("capture_loop", true);
    auto progress_at = Clock::now() + std::chrono::seconds(kProgressEverySec);
    do {
        auto next = Clock::now();
        double last_ms = -1;
        uint64_t sent = 0;
        for (const auto& frame : frames_) {
            if (paced && last_ms >= 0) {
                double gap =
                    std::clamp(frame.timestamp_ms - last_ms, 0.0, double(dmux::kReplayMaxGapMs));
                next += std::chrono::microseconds(static_cast<int64_t>(gap * 1000));
                if (!session->SleepUntil(next)) return;
            }
            last_ms = frame.timestamp_ms;
            if (!session->mask.Enabled(frame.code)) continue;
            if (!session->Send(frame.raw.data(), frame.raw.size())) return;
            ++sent;
            packets_sent_.fetch_add(1);
            if (Clock::now() >= progress_at) {
                // A paced pass can take as long as the capture did: show it move.
                std::fprintf(stderr, "modemsim: diag capture sent=%llu of this pass\n",
                             static_cast<unsigned long long>(sent));
                progress_at = Clock::now() + std::chrono::seconds(kProgressEverySec);
            }
        }
        std::fprintf(stderr, "modemsim: diag capture pass done sent=%llu\n",
                     static_cast<unsigned long long>(sent));
        // Pause before starting over when paced or when nothing went out, so
        // that a short capture does not flood the port or spin a core.
        if (loop && (paced || sent == 0) &&
            !session->SleepUntil(Clock::now() +
                                 std::chrono::milliseconds(dmux::kReplayLoopPauseMs)))
            return;
    } while (loop);
}

void DiagSide::ProduceScenario(Session* session) {
    struct Step {
        uint8_t state;
        int hold_ms;
    };
    struct Periodic {
        uint16_t code;
        std::vector<uint8_t> payload;
        int period_ms;
        Clock::time_point next;
    };
    std::vector<Step> steps;
    for (const auto& s : scenario_.value("rrc_states", nlohmann::json::array()))
        steps.push_back(
            {static_cast<uint8_t>(IntOr(s, "state", 0)), std::max(1, IntOr(s, "hold_ms", 1000))});
    int rrc_period = std::max(10, IntOr(scenario_, "rrc_period_ms", 500));
    std::vector<Periodic> records;
    for (const auto& r : scenario_.value("records", nlohmann::json::array())) {
        auto payload = ParseHex(r.value("payload", std::string()));
        auto code = CodeFromJson(r.value("code", nlohmann::json(0)));
        if (!payload || !code) continue;
        records.push_back(
            {*code, *payload, std::max(10, IntOr(r, "period_ms", 1000)), Clock::now()});
    }

    auto send_record = [&](uint16_t code, const std::vector<uint8_t>& payload) {
        if (!session->mask.Enabled(code)) return true;
        auto record = dmux::BuildLogRecord(code, TimestampNow(), payload);
        auto frame = dmux::HdlcEncode(dmux::BuildLogPacketBody(record));
        if (!session->Send(frame.data(), frame.size())) return false;
        packets_sent_.fetch_add(1);
        return true;
    };

    // The worlds' codes, each world at its own period, except the codes
    // that the records send.
    struct WorldSource {
        std::function<std::vector<LogPayload>()> packets;
        std::chrono::milliseconds period;
        Clock::time_point next;
    };
    std::vector<WorldSource> worlds;
    if (world_ && world_->enabled())
        worlds.push_back({[this] { return WcdmaLogPayloads(world_->At(world_->Elapsed())); },
                          std::chrono::milliseconds(world_->period_ms()), Clock::now()});
    if (lte_ && lte_->enabled())
        worlds.push_back({[this] { return LteLogPayloads(lte_->At(lte_->Elapsed())); },
                          std::chrono::milliseconds(lte_->period_ms()), Clock::now()});
    auto send_world = [&](const WorldSource& world) {
        for (const LogPayload& packet : world.packets()) {
            bool scripted = std::any_of(records.begin(), records.end(),
                                        [&](const Periodic& r) { return r.code == packet.code; });
            if (!scripted && !send_record(packet.code, packet.payload)) return false;
        }
        return true;
    };

    size_t step = 0;
    auto step_end = Clock::now() + std::chrono::milliseconds(steps.empty() ? 0 : steps[0].hold_ms);
    auto next_rrc = Clock::now();
    while (true) {
        auto now = Clock::now();
        if (!steps.empty()) {
            if (now >= step_end) {
                step = (step + 1) % steps.size();
                step_end = now + std::chrono::milliseconds(steps[step].hold_ms);
                next_rrc = now;  // a state change is logged at once
            }
            if (now >= next_rrc) {
                if (!send_record(0x4125, {steps[step].state})) return;
                next_rrc = now + std::chrono::milliseconds(rrc_period);
            }
        }
        for (auto& r : records) {
            if (now < r.next) continue;
            if (!send_record(r.code, r.payload)) return;
            r.next = now + std::chrono::milliseconds(r.period_ms);
        }
        for (WorldSource& world : worlds) {
            if (now < world.next) continue;
            if (!send_world(world)) return;
            world.next = now + world.period;
        }
        auto wake = now + std::chrono::milliseconds(50);
        if (!steps.empty()) wake = std::min({wake, step_end, next_rrc});
        for (const WorldSource& world : worlds) wake = std::min(wake, world.next);
        if (!session->SleepUntil(wake)) return;
    }
}

}  // namespace modemsim
