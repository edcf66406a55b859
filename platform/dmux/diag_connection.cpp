#include "platform/dmux/diag_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/dmux/hdlc.h"

namespace dmux {

namespace {

using Clock = std::chrono::steady_clock;

int ConnectUnix(const std::string& path, int* error) {
    sockaddr_un addr{};
    if (path.size() >= sizeof addr.sun_path) {
        *error = ENAMETOOLONG;
        return -1;
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = errno;
        return -1;
    }
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        *error = errno;
        ::close(fd);
        return -1;
    }
    return fd;
}

int OpenSerial(const std::string& path, int* error) {
    int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        *error = errno;
        return -1;
    }
    // A terminal's line discipline would echo, translate and swallow HDLC
    // bytes: the port goes raw (8N1, no flow control, no modem lines), or
    // is not used. A plain file or pipe has no line settings.
    termios tio{};
    if (::tcgetattr(fd, &tio) == 0) {
        ::cfmakeraw(&tio);
        ::cfsetispeed(&tio, B115200);
        ::cfsetospeed(&tio, B115200);
        tio.c_cflag |= CLOCAL | CREAD;
        tio.c_cc[VMIN] = 1;
        tio.c_cc[VTIME] = 0;
        if (::tcsetattr(fd, TCSANOW, &tio) != 0) {
            *error = errno;
            ::close(fd);
            return -1;
        }
        // Bytes the port held before this open answer nothing of ours.
        ::tcflush(fd, TCIOFLUSH);
    }
    return fd;
}

bool WriteAll(int fd, const uint8_t* data, size_t length, int* error) {
    while (length > 0) {
        ssize_t n = ::send(fd, data, length, MSG_NOSIGNAL);
        if (n < 0 && errno == ENOTSOCK) n = ::write(fd, data, length);
        if (n < 0) {
            if (errno == EINTR) continue;
            *error = errno;
            return false;
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

int OpenStreamSource(const DiagSource& source, int* error) {
    return source.kind == DiagSource::Kind::kUnixSocket ? ConnectUnix(source.path, error)
                                                        : OpenSerial(source.path, error);
}

}  // namespace

DiagConnection::DiagConnection(const DiagSource& source)
    : source_(source), stream_(&mask_, &DiagConnection::Deliver, this) {
    stream_.SetSubscription(source.subscription != 0 ? source.subscription
                                                     : DiagSubscriptionFromEnvironment());
    stream_.SetConfigSink([this](std::span<const uint8_t> body) { OnConfigFrame(body); });
}

std::unique_ptr<DiagConnection> DiagConnection::Open(const DiagSource& source, int* error) {
    std::unique_ptr<DiagConnection> conn(new DiagConnection(source));
    *error = 0;
    switch (source.kind) {
        case DiagSource::Kind::kUnixSocket:
            conn->fd_ = ConnectUnix(source.path, error);
            break;
        case DiagSource::Kind::kSerial:
            conn->fd_ = OpenSerial(source.path, error);
            break;
        case DiagSource::Kind::kFile: {
            int fd = ::open(source.path.c_str(), O_RDONLY | O_CLOEXEC);
            struct stat st {};
            if (fd < 0 || ::fstat(fd, &st) != 0) {
                *error = errno;
                if (fd >= 0) ::close(fd);
                return nullptr;
            }
            conn->file_fd_ = fd;
            conn->file_size_ = static_cast<size_t>(st.st_size);
            conn->thread_ = std::thread([c = conn.get()] { c->ReplayLoop(); });
            return conn;
        }
    }
    if (conn->fd_ < 0) return nullptr;
    conn->thread_ = std::thread([c = conn.get()] { c->StreamLoop(); });
    return conn;
}

DiagConnection::~DiagConnection() {
    if (!Stop()) thread_.detach();
    if (fd_ >= 0) ::close(fd_);
    if (file_fd_ >= 0) ::close(file_fd_);
}

bool DiagConnection::Stop() {
    stopping_.store(true);
    callback_.store(nullptr);
    {
        std::lock_guard<std::mutex> hold(mutex_);
        changed_.notify_all();
    }
    {
        // Not while the reader thread replaces the descriptor.
        std::lock_guard<std::mutex> wire(write_mutex_);
        if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
    }
    if (!thread_.joinable()) return true;
    // The thread may be inside the daemon's callback; give it a second to
    // come out. If it does not (its lock is held by a thread that a signal
    // interrupted), leave it behind rather than hang.
    for (int i = 0; i < 1000 && !exited_.load(); ++i) ::usleep(1000);
    if (!exited_.load()) return false;
    thread_.join();
    return true;
}

void DiagConnection::SetCallback(kora_dmc_log_cb_t callback, void* user_data) {
    user_data_.store(user_data);
    callback_.store(callback);
}

void DiagConnection::Deliver(void* self, uint16_t code, std::span<const uint8_t> record) {
    auto* conn = static_cast<DiagConnection*>(self);
    if (conn->stopping_.load(std::memory_order_relaxed)) return;
    kora_dmc_log_cb_t callback = conn->callback_.load(std::memory_order_acquire);
    if (callback != nullptr)
        callback(conn->user_data_.load(std::memory_order_relaxed), code, record.data(),
                 static_cast<uint32_t>(record.size()));
}

void DiagConnection::OnConfigFrame(std::span<const uint8_t> body) {
    auto response = ParseLogConfigResponse(body);
    if (!response || response->operation != kLogConfigSetMask) return;
    std::lock_guard<std::mutex> hold(mutex_);
    response_ = response;
    changed_.notify_all();
}

int DiagConnection::SetLogMask(uint32_t equipment_id, uint32_t last_item,
                               std::span<const uint8_t> mask, uint32_t* status) {
    MaskInForce in_force{last_item, std::vector<uint8_t>(mask.begin(), mask.end())};
    if (source_.kind == DiagSource::Kind::kFile) {
        std::lock_guard<std::mutex> hold(mutex_);
        pending_masks_.emplace_back(equipment_id, std::move(in_force));
        masks_pending_.store(true);
        changed_.notify_all();
        *status = 0;  // a capture has no modem to ask
        return 0;
    }
    // Delivery follows the new mask at once, whatever the modem answers.
    mask_.SetEquipment(equipment_id, last_item, mask);
    {
        // Sent again to a source that comes back, even if it is away now.
        std::lock_guard<std::mutex> hold(mutex_);
        masks_in_force_[equipment_id] = std::move(in_force);
    }

    std::lock_guard<std::mutex> one_at_a_time(write_mutex_);
    {
        std::lock_guard<std::mutex> hold(mutex_);
        response_.reset();
        if (transport_lost_) return EPIPE;
    }
    std::vector<uint8_t> frame = HdlcEncode(BuildLogConfigSetMask(equipment_id, last_item, mask));
    int error = 0;
    if (!WriteAll(fd_, frame.data(), frame.size(), &error)) return error;

    std::unique_lock<std::mutex> hold(mutex_);
    bool answered = changed_.wait_for(
        hold, std::chrono::milliseconds(KORA_DMC_RESPONSE_TIMEOUT_MS),
        [&] { return response_.has_value() || transport_lost_ || stopping_.load(); });
    if (!answered || !response_) return transport_lost_ ? EPIPE : ETIMEDOUT;
    *status = response_->status;
    return response_->status == 0 ? 0 : EIO;
}

void DiagConnection::StreamLoop() {
    do {
        ReadUntilLost();
        {
            std::lock_guard<std::mutex> hold(mutex_);
            transport_lost_ = true;
            changed_.notify_all();
        }
    } while (!stopping_.load() && Reconnect());
    exited_.store(true);
}

void DiagConnection::ReadUntilLost() {
    std::vector<uint8_t> buffer(65536);
    while (!stopping_.load()) {
        pollfd pfd{fd_, POLLIN, 0};
        int ready = ::poll(&pfd, 1, kQuietMs);
        if (ready < 0 && errno != EINTR) return;
        if (ready == 0) {
            // The source has gone quiet: what came before it is written now,
            // not at the next read, which may never come.
            PublishStats(StatsMoment::kIfChanged);
            continue;
        }
        if (ready < 0) continue;
        ssize_t n = ::read(fd_, buffer.data(), buffer.size());
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) return;
        stream_.Feed(std::span<const uint8_t>(buffer.data(), static_cast<size_t>(n)));
        PublishStats(StatsMoment::kWhenDue);
    }
}

bool DiagConnection::Reconnect() {
    {
        std::lock_guard<std::mutex> wire(write_mutex_);
        ::close(fd_.exchange(-1));
    }
    // Bytes of the lost source's last frame must not run into the new one's.
    stream_.Finish();
    for (int pause = kReconnectFirstMs; !stopping_.load();
         pause = std::min(pause * 2, kReconnectMaxMs)) {
        if (!SleepUntil(Clock::now() + std::chrono::milliseconds(pause))) return false;
        int error = 0;
        int fd = OpenStreamSource(source_, &error);
        if (fd < 0) continue;
        std::lock_guard<std::mutex> wire(write_mutex_);
        std::map<uint32_t, MaskInForce> masks;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            masks = masks_in_force_;
            transport_lost_ = false;
        }
        fd_ = fd;
        // The answers arrive on this thread once it reads again; nobody
        // waits for them, as the daemon sent these masks long ago.
        for (const auto& [equipment_id, in_force] : masks) {
            std::vector<uint8_t> frame =
                HdlcEncode(BuildLogConfigSetMask(equipment_id, in_force.last_item, in_force.mask));
            if (!WriteAll(fd, frame.data(), frame.size(), &error)) break;
        }
        return true;
    }
    return false;
}

bool DiagConnection::SleepUntil(Clock::time_point when) {
    std::unique_lock<std::mutex> hold(mutex_);
    changed_.wait_until(hold, when, [&] { return stopping_.load(); });
    return !stopping_.load();
}

void DiagConnection::ReplayLoop() {
    WaitForFirstMask();
    stream_.SetObserver([this](const DiagFrame& frame) {
        if (source_.pace_real) Pace(frame);
        // The packet being handled is the pass's last one not yet offered.
        ApplyPendingMasks(stream_.stats().log_packets - pass_start_packets_ - 1);
    });
    do {
        uint64_t delivered_before = stream_.stats().delivered;
        pass_start_packets_ = stream_.stats().log_packets;
        ReplayOnce();
        PublishStats(stopping_.load() ? StatsMoment::kWhenDue : StatsMoment::kPassDone);
        pace_started_ = false;
        // A paced loop pauses before it starts over (its first packet has no
        // gap of its own), and so does any pass that delivered nothing: a
        // short or empty capture must not spin a core.
        if (source_.loop && (source_.pace_real || stream_.stats().delivered == delivered_before))
            SleepUntil(Clock::now() + std::chrono::milliseconds(kReplayLoopPauseMs));
    } while (source_.loop && !stopping_.load() && file_size_ > 0);
    IdleUntilStopped();
    exited_.store(true);
}

void DiagConnection::WaitForFirstMask() {
    // The replay starts once a mask the client sent enables some code; the
    // client's further masks catch up on what went by (ApplyPendingMasks).
    while (!stopping_.load()) {
        ApplyPendingMasks(0);
        if (mask_.Any()) return;
        std::unique_lock<std::mutex> hold(mutex_);
        changed_.wait(hold, [&] { return stopping_.load() || !pending_masks_.empty(); });
    }
}

void DiagConnection::IdleUntilStopped() {
    // A finished replay keeps the connection open, like a quiet modem; a
    // code enabled now still gets the last pass's packets.
    while (!stopping_.load()) {
        {
            std::unique_lock<std::mutex> hold(mutex_);
            changed_.wait(hold, [&] { return stopping_.load() || !pending_masks_.empty(); });
        }
        if (stopping_.load()) break;
        ApplyPendingMasks(stream_.stats().log_packets - pass_start_packets_);
        PublishStats(StatsMoment::kNow);
    }
}

void DiagConnection::ApplyPendingMasks(uint64_t frames_before) {
    if (!masks_pending_.load()) return;
    std::vector<std::pair<uint32_t, MaskInForce>> pending;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        masks_pending_.store(false);
        pending.swap(pending_masks_);
        for (const auto& [equipment_id, in_force] : pending)
            masks_in_force_[equipment_id] = in_force;
    }
    LogCodeMask first_enabled;
    bool catch_up = false;
    for (const auto& [equipment_id, in_force] : pending) {
        mask_.SetEquipment(equipment_id, in_force.last_item, in_force.mask);
        if (equipment_id >= configured_.size() || configured_[equipment_id]) continue;
        configured_.set(equipment_id);
        first_enabled.SetEquipment(equipment_id, in_force.last_item, in_force.mask);
        catch_up = true;
    }
    if (catch_up && frames_before > 0) CatchUp(first_enabled, frames_before);
}

void DiagConnection::CatchUp(const LogCodeMask& only, uint64_t frames_before) {
    std::vector<uint8_t> window(std::min(kReplayWindow, std::max<size_t>(file_size_, 1)));
    HdlcDeframer deframer;
    uint64_t seen = 0;
    for (size_t offset = 0; offset < file_size_ && seen < frames_before && !stopping_.load();) {
        size_t want = std::min(window.size(), file_size_ - offset);
        ssize_t n = ::pread(file_fd_, window.data(), want, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        deframer.Feed(window.data(), static_cast<size_t>(n), [&](std::span<const uint8_t> body) {
            if (seen >= frames_before) return;
            DiagFrame frame = ParseDiagFrame(body);
            if (frame.kind != DiagFrameKind::kLogPacket) return;
            ++seen;
            stream_.Reoffer(frame, only);
        });
        offset += static_cast<size_t>(n);
    }
}

void DiagConnection::Pace(const DiagFrame& frame) {
    double ms = LogTimestampMs(LogRecordTimestamp(frame.record));
    auto now = Clock::now();
    if (!pace_started_) {
        pace_started_ = true;
        pace_next_ = now;
    } else {
        double gap = ms - pace_last_ms_;
        if (gap < 0) gap = 0;
        if (gap > kReplayMaxGapMs) gap = kReplayMaxGapMs;
        pace_next_ += std::chrono::microseconds(static_cast<int64_t>(gap * 1000));
        if (pace_next_ > now) {
            // A gap of up to a second: the packets before it are written
            // first when the replay is about to go quiet.
            bool quiet = pace_next_ - now >= std::chrono::milliseconds(kQuietMs);
            PublishStats(quiet ? StatsMoment::kIfChanged : StatsMoment::kWhenDue);
            SleepUntil(pace_next_);
        }
    }
    pace_last_ms_ = ms;
}

void DiagConnection::ReplayOnce() {
    std::vector<uint8_t> window(std::min(kReplayWindow, std::max<size_t>(file_size_, 1)));
    replayed_ = 0;
    progress_shown_ = 0;
    while (replayed_ < file_size_ && !stopping_.load()) {
        size_t want = std::min(window.size(), file_size_ - replayed_);
        ssize_t n = ::pread(file_fd_, window.data(), want, static_cast<off_t>(replayed_));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // the file shrank or cannot be read: end of this pass
        stream_.Feed(std::span<const uint8_t>(window.data(), static_cast<size_t>(n)));
        replayed_ += static_cast<size_t>(n);
        PublishStats(StatsMoment::kWhenDue);
    }
    stream_.Finish();
}

void DiagConnection::PublishStats(StatsMoment moment) {
    const bool pass_done = moment == StatsMoment::kPassDone;
    // One gathering of the stream's counts feeds both the library's stats
    // call and its PPS object.
    DmStatsValues values;
    values.frames_good = stream_.frames().good;
    values.frames_bad = stream_.frames().bad();
    values.log_packets = stream_.stats().log_packets;
    values.delivered = stream_.stats().delivered;
    values.translated = stream_.stats().translated;
    values.dropped = stream_.stats().dropped;
    values.other_subscription = stream_.stats().other_subscription;
    values.subscription = stream_.subscription();
    if (source_.kind == DiagSource::Kind::kFile)
        values.replay_percent =
            file_size_ == 0 ? 100 : static_cast<int>(replayed_ * 100 / file_size_);
    {
        std::lock_guard<std::mutex> hold(mutex_);
        stats_.frames_good = values.frames_good;
        stats_.frames_bad = values.frames_bad;
        stats_.log_packets = values.log_packets;
        stats_.delivered = values.delivered;
        stats_.translated = values.translated;
        stats_.dropped = values.dropped;
        stats_.other_subscription = values.other_subscription;
        stats_.replay_percent = values.replay_percent;
        if (pass_done) ++stats_.replay_passes;
        values.replay_passes = stats_.replay_passes;
    }
    // A long replay tells each tenth on stderr.
    if (file_size_ >= kReplayProgressMinBytes && values.replay_percent / 10 > progress_shown_) {
        progress_shown_ = values.replay_percent / 10;
        std::fprintf(stderr, "dmux: replay %d%% of %s\n", progress_shown_ * 10,
                     source_.path.c_str());
    }
    const bool force = moment == StatsMoment::kPassDone || moment == StatsMoment::kNow;
    if (!force &&
        (!dm_stats_.Changed(values) || (moment == StatsMoment::kWhenDue && !dm_stats_.Due())))
        return;
    values.versions_json = VersionCountsJson(stream_.versions().Sorted());
    dm_stats_.Publish(values, true);
}

kora_dmc_stats DiagConnection::Stats() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return stats_;
}

}  // namespace dmux
