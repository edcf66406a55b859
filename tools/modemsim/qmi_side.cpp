#include "tools/modemsim/qmi_side.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/qmi_client/transport.h"
#include "tools/modemsim/world_support.h"

namespace modemsim {

namespace {

constexpr uint16_t kErrInvalidClientId = 0x0007;
constexpr uint16_t kErrInvalidServiceType = 0x001F;
constexpr uint16_t kErrClientIdsExhausted = 0x0005;

// One line per request: "modemsim: qmi rx svc=0xe3 cid=1 txn=4 msg=0x1f tlv01=00".
void LogRequest(const qmux::Message& request) {
    std::string line;
    char part[64];
    std::snprintf(part, sizeof part, "modemsim: qmi rx svc=0x%02x cid=%u txn=%u msg=0x%02x",
                  request.service, request.client_id, request.transaction, request.message_id);
    line += part;
    std::vector<qmux::Tlv> tlvs;
    bool whole = qmux::ParseTlvs(request.tlvs, &tlvs);
    for (const qmux::Tlv& tlv : tlvs) {
        std::snprintf(part, sizeof part, " tlv%02x=", tlv.type);
        line += part;
        for (uint8_t byte : tlv.value) {
            std::snprintf(part, sizeof part, "%02x", byte);
            line += part;
        }
    }
    if (!whole) line += " (TLVs cut short)";
    std::fprintf(stderr, "%s\n", line.c_str());
}

std::vector<uint8_t> ResultTlvs(uint16_t result, uint16_t error) {
    std::vector<uint8_t> tlvs;
    qmux::AppendTlv(&tlvs, qmux::kResultTlv, qmux::ResultTlvValue({result, error}));
    return tlvs;
}

}  // namespace

QmiSide::QmiSide(std::string endpoint, const nlohmann::json& qmi_section,
                 std::shared_ptr<const WcdmaWorld> world, std::shared_ptr<const LteWorld> lte)
    : endpoint_text_(std::move(endpoint)),
      vendor_(qmi_section, std::move(world), std::move(lte)),
      services_(qmi_section.value("services", nlohmann::json::array())),
      reset_down_ms_(std::max(0, IntOr(qmi_section, "reset_down_ms", 1000))) {}

QmiSide::~QmiSide() {
    Stop();
}

bool QmiSide::Start(std::string* error) {
    qmux::Endpoint endpoint;
    path_ = PtyLinkPath(endpoint_text_);
    on_pty_ = !path_.empty();
    if (!on_pty_ && qmux::ParseEndpoint(endpoint_text_, &endpoint) &&
        endpoint.kind == qmux::Endpoint::Kind::kUnixSocket) {
        path_ = endpoint.path;
    }
    if (path_.empty()) {
        *error = "QMI endpoint must be unix:/path or pty:LINK, not '" + endpoint_text_ + "'";
        return false;
    }
    if (::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        *error = std::string("pipe: ") + std::strerror(errno);
        return false;
    }
    if (!Listen(error)) return false;
    thread_ = std::thread([this] { Run(); });
    return true;
}

bool QmiSide::Listen(std::string* error) {
    if (on_pty_) {
        if (!pty_.Open(path_, error)) return false;
        auto connection = std::make_unique<Connection>();
        connection->fd = pty_.master();
        connection->pty = true;
        connection->serial = next_serial_++;
        connections_.push_back(std::move(connection));
        std::fprintf(stderr, "modemsim: qmi listening on %s\n", endpoint_text_.c_str());
        return true;
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("socket: ") + std::strerror(errno);
        return false;
    }
    ::unlink(path_.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.c_str(), path_.size());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 8) != 0) {
        *error = "cannot listen on " + path_ + ": " + std::strerror(errno);
        ::close(fd);
        return false;
    }
    listen_fd_ = fd;
    std::fprintf(stderr, "modemsim: qmi listening on %s\n", endpoint_text_.c_str());
    return true;
}

void QmiSide::Reset() {
    reset_requested_ = true;
    char byte = 0;
    ssize_t ignored = ::write(wake_[1], &byte, 1);
    (void)ignored;
}

void QmiSide::Stop() {
    if (!thread_.joinable()) return;
    stopping_ = true;
    char byte = 0;
    ssize_t ignored = ::write(wake_[1], &byte, 1);
    (void)ignored;
    thread_.join();
    DropTransport();
    ::close(wake_[0]);
    ::close(wake_[1]);
}

void QmiSide::DropTransport() {
    for (auto& connection : connections_)
        if (!connection->pty) ::close(connection->fd);
    connections_.clear();
    scheduled_.clear();
    pty_.Close();
    if (listen_fd_ >= 0) {
        ::close(listen_fd_);
        ::unlink(path_.c_str());
        listen_fd_ = -1;
    }
}

int QmiSide::PollTimeoutMs() const {
    Clock::time_point next = Clock::time_point::max();
    for (const Scheduled& s : scheduled_) next = std::min(next, s.due);
    if (down_) next = std::min(next, back_at_);
    if (next == Clock::time_point::max()) return -1;
    auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
    return wait < 0 ? 0 : static_cast<int>(wait) + 1;
}

void QmiSide::Run() {
    while (!stopping_) {
        if (reset_requested_.exchange(false)) {
            DropTransport();
            down_ = true;
            back_at_ = Clock::now() + std::chrono::milliseconds(reset_down_ms_);
            std::fprintf(stderr, "modemsim: qmi reset: transport down for %d ms\n", reset_down_ms_);
        }
        if (down_ && Clock::now() >= back_at_) {
            std::string error;
            if (Listen(&error)) {
                down_ = false;
                std::fprintf(stderr, "modemsim: qmi reset: transport back\n");
            } else {
                std::fprintf(stderr, "modemsim: %s\n", error.c_str());
                back_at_ = Clock::now() + std::chrono::milliseconds(200);
            }
        }
        std::vector<pollfd> fds;
        fds.push_back({wake_[0], POLLIN, 0});
        if (listen_fd_ >= 0) fds.push_back({listen_fd_, POLLIN, 0});
        size_t first_connection = fds.size();
        for (auto& connection : connections_) fds.push_back({connection->fd, POLLIN, 0});
        int ready = ::poll(fds.data(), fds.size(), PollTimeoutMs());
        if (ready < 0 && errno != EINTR) break;
        if (ready > 0) {
            if (fds[0].revents != 0) {
                char drain[64];
                while (::read(wake_[0], drain, sizeof drain) > 0) {
                }
            }
            if (listen_fd_ >= 0 && fds[1].revents != 0) Accept();
            // Read from the connections that were polled; drop the closed ones.
            std::vector<Connection*> closed;
            for (size_t i = first_connection; i < fds.size(); ++i) {
                if (fds[i].revents == 0) continue;
                Connection* connection = connections_[i - first_connection].get();
                if (!ReadFrom(connection)) closed.push_back(connection);
            }
            for (Connection* connection : closed) {
                std::fprintf(stderr, "modemsim: qmi connection closed\n");
                if (connection->pty)
                    pty_.Close();
                else
                    ::close(connection->fd);
                std::erase_if(connections_, [&](auto& c) { return c.get() == connection; });
            }
        }
        SendDue();
    }
}

void QmiSide::Accept() {
    int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    auto connection = std::make_unique<Connection>();
    connection->fd = fd;
    connection->serial = next_serial_++;
    connections_.push_back(std::move(connection));
    std::fprintf(stderr, "modemsim: qmi connection accepted\n");
}

bool QmiSide::ReadFrom(Connection* connection) {
    uint8_t chunk[4096];
    ssize_t n = ::read(connection->fd, chunk, sizeof chunk);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (n <= 0) return false;
    connection->assembler.Append({chunk, static_cast<size_t>(n)});
    std::vector<uint8_t> frame;
    while (connection->assembler.Next(&frame)) {
        qmux::Message request;
        qmux::DecodeStatus status = qmux::Decode(frame, &request);
        if (status != qmux::DecodeStatus::kOk) {
            std::fprintf(stderr, "modemsim: qmi frame dropped: %s\n",
                         qmux::DecodeStatusName(status));
            continue;
        }
        Handle(connection, request);
    }
    return true;
}

void QmiSide::Handle(Connection* connection, const qmux::Message& request) {
    LogRequest(request);
    if (request.qmux_flags != qmux::kFromControlPoint) return;
    if (request.is_ctl()) {
        HandleCtl(connection, request);
        return;
    }
    qmux::Message answer;
    answer.qmux_flags = qmux::kFromService;
    answer.service = request.service;
    answer.client_id = request.client_id;
    answer.flags = qmux::kServiceResponse;
    answer.transaction = request.transaction;
    answer.message_id = request.message_id;
    bool known = request.service == kVendorService &&
                 std::find(connection->clients.begin(), connection->clients.end(),
                           request.client_id) != connection->clients.end();
    if (!known) {
        answer.tlvs = ResultTlvs(1, kErrInvalidClientId);
        Schedule(connection, std::move(answer), 0);
        return;
    }
    Reply reply = vendor_.Answer(request.message_id, request.tlvs);
    answer.tlvs = std::move(reply.tlvs);
    Schedule(connection, std::move(answer), reply.delay_ms);
}

void QmiSide::HandleCtl(Connection* connection, const qmux::Message& request) {
    qmux::Message answer;
    answer.qmux_flags = qmux::kFromService;
    answer.service = qmux::kCtlService;
    answer.flags = qmux::kCtlResponse;
    answer.transaction = request.transaction;
    answer.message_id = request.message_id;
    std::optional<qmux::Tlv> argument = qmux::FindTlv(request.tlvs, qmux::kCtlArgumentTlv);
    switch (request.message_id) {
        case qmux::kCtlGetVersionInfo: {
            // Service list: count, then (service, major u16, minor u16).
            std::vector<uint8_t> list{static_cast<uint8_t>(services_.size())};
            for (const nlohmann::json& service : services_) {
                int major = IntOr(service, "major", 1), minor = IntOr(service, "minor", 0);
                list.push_back(static_cast<uint8_t>(IntOr(service, "service", 0)));
                list.insert(list.end(),
                            {static_cast<uint8_t>(major & 0xFF), static_cast<uint8_t>(major >> 8),
                             static_cast<uint8_t>(minor & 0xFF), static_cast<uint8_t>(minor >> 8)});
            }
            answer.tlvs = ResultTlvs(0, 0);
            qmux::AppendTlv(&answer.tlvs, qmux::kCtlArgumentTlv, list);
            break;
        }
        case qmux::kCtlGetClientId: {
            if (!argument || argument->value.size() != 1 || argument->value[0] != kVendorService) {
                answer.tlvs = ResultTlvs(1, kErrInvalidServiceType);
                break;
            }
            if (connection->clients.size() >= 254) {
                answer.tlvs = ResultTlvs(1, kErrClientIdsExhausted);
                break;
            }
            uint8_t client_id = next_client_id_;
            while (client_id == 0 ||
                   std::find(connection->clients.begin(), connection->clients.end(), client_id) !=
                       connection->clients.end()) {
                ++client_id;
            }
            next_client_id_ = static_cast<uint8_t>(client_id + 1);
            connection->clients.push_back(client_id);
            answer.tlvs = ResultTlvs(0, 0);
            qmux::AppendTlv(&answer.tlvs, qmux::kCtlArgumentTlv,
                            std::vector<uint8_t>{kVendorService, client_id});
            break;
        }
        case qmux::kCtlReleaseClientId: {
            auto found = argument && argument->value.size() == 2
                             ? std::find(connection->clients.begin(), connection->clients.end(),
                                         argument->value[1])
                             : connection->clients.end();
            if (found == connection->clients.end()) {
                answer.tlvs = ResultTlvs(1, kErrInvalidClientId);
                break;
            }
            connection->clients.erase(found);
            answer.tlvs = ResultTlvs(0, 0);
            qmux::AppendTlv(&answer.tlvs, qmux::kCtlArgumentTlv, argument->value);
            break;
        }
        case qmux::kCtlSync:
            // A sync starts the control point afresh: its client ids are gone.
            connection->clients.clear();
            answer.tlvs = ResultTlvs(0, 0);
            break;
        default:
            answer.tlvs = ResultTlvs(1, kErrInvalidCommand);
            break;
    }
    Schedule(connection, std::move(answer), 0);
}

void QmiSide::Schedule(Connection* connection, qmux::Message answer, int delay_ms) {
    scheduled_.push_back({Clock::now() + std::chrono::milliseconds(delay_ms), connection->serial,
                          qmux::Encode(answer),
                          static_cast<uint16_t>(delay_ms > 0 ? answer.message_id : 0)});
}

void QmiSide::SendDue() {
    Clock::time_point now = Clock::now();
    std::stable_sort(scheduled_.begin(), scheduled_.end(),
                     [](const Scheduled& a, const Scheduled& b) { return a.due < b.due; });
    while (!scheduled_.empty() && scheduled_.front().due <= now) {
        Scheduled due = std::move(scheduled_.front());
        scheduled_.erase(scheduled_.begin());
        for (auto& connection : connections_) {
            if (connection->serial != due.serial) continue;
            // A peer that went away is noticed by the next read.
            // A pseudo-terminal nobody reads drops what does not fit.
            qmux::Endpoint::Kind kind = connection->pty ? qmux::Endpoint::Kind::kCharDevice
                                                        : qmux::Endpoint::Kind::kUnixSocket;
            qmux::WriteFrame(connection->fd, {kind, path_}, due.frame.data(), due.frame.size());
            // Tests order a delayed answer against what its asker did meanwhile.
            if (due.delayed_message != 0)
                std::fprintf(stderr, "modemsim: delayed answer sent msg=0x%02x\n",
                             due.delayed_message);
        }
    }
}

}  // namespace modemsim
