#include "platform/qmi_client/transport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/qmi_client/qmi_client.h"
#include "platform/qmi_client/qmux_codec.h"

namespace qmux {

namespace {

using Clock = std::chrono::steady_clock;

int ConnectUnix(const sockaddr_un& address, socklen_t length) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

// Fills `out` from fd before the deadline; false with errno on end of
// stream, error, time-out or a byte on cancel_fd.
bool ReadExactly(int fd, int cancel_fd, uint8_t* out, size_t length, Clock::time_point deadline) {
    while (length > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            errno = ETIMEDOUT;
            return false;
        }
        pollfd fds[2] = {{fd, POLLIN, 0}, {cancel_fd, POLLIN, 0}};
        int ready = ::poll(fds, cancel_fd >= 0 ? 2 : 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return false;
        if (cancel_fd >= 0 && fds[1].revents != 0) {
            errno = ECANCELED;
            return false;
        }
        if (fds[0].revents == 0) continue;
        ssize_t n = ::read(fd, out, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = ECONNRESET;
            return false;
        }
        out += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

// Asks the proxy to open `device` for this connection, as libqmi's own
// clients do: a CTL request 0xFF00 whose TLV 0x01 is the path. The proxy
// answers with a CTL result once the device is open, and not at all when it
// cannot open it (hence the time-out). Exactly the answer's bytes are read,
// so that what follows is QMUX from the device.
bool OpenThroughProxy(int fd, int cancel_fd, const std::string& device) {
    Message request;
    request.service = kCtlService;
    request.flags = kCtlRequest;
    request.transaction = 1;
    request.message_id = kCtlInternalProxyOpen;
    AppendTlv(&request.tlvs, kCtlArgumentTlv,
              {reinterpret_cast<const uint8_t*>(device.data()), device.size()});
    std::vector<uint8_t> frame = Encode(request);
    if (!WriteFrame(fd, {Endpoint::Kind::kQmiProxy, device}, frame.data(), frame.size())) {
        return false;
    }
    auto deadline = Clock::now() + std::chrono::milliseconds(kQmiProxyOpenTimeoutMs);
    uint8_t header[3];  // 01, then the length of what follows it
    if (!ReadExactly(fd, cancel_fd, header, sizeof header, deadline)) return false;
    size_t length = header[1] | (header[2] << 8);
    if (header[0] != kInterfaceType || length < kQmuxHeaderLen - 1) {
        errno = EPROTO;
        return false;
    }
    std::vector<uint8_t> answer(header, header + sizeof header);
    answer.resize(1 + length);
    if (!ReadExactly(fd, cancel_fd, answer.data() + sizeof header, answer.size() - sizeof header,
                     deadline)) {
        return false;
    }
    Message response;
    std::optional<Result> result;
    if (Decode(answer, &response) == DecodeStatus::kOk) result = ReadResult(response.tlvs);
    if (!response.is_ctl() || response.flags != kCtlResponse ||
        response.message_id != kCtlInternalProxyOpen || !result || result->result != 0) {
        errno = EPROTO;
        return false;
    }
    return true;
}

int OpenThroughProxy(const Endpoint& endpoint, int cancel_fd) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    size_t name_length = std::strlen(kQmiProxySocketName);
    // An abstract name: a leading NUL, and no terminating one counted.
    std::memcpy(address.sun_path + 1, kQmiProxySocketName, name_length);
    int fd = ConnectUnix(address,
                         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name_length));
    if (fd < 0) return -1;
    if (!OpenThroughProxy(fd, cancel_fd, endpoint.path)) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

}  // namespace

bool ParseEndpoint(const std::string& text, Endpoint* endpoint) {
    static const std::string kUnixPrefix = "unix:";
    static const std::string kProxyPrefix = "qmi-proxy:";
    if (text.rfind(kUnixPrefix, 0) == 0) {
        std::string path = text.substr(kUnixPrefix.size());
        if (path.empty() || path.size() >= sizeof(sockaddr_un{}.sun_path)) return false;
        *endpoint = {Endpoint::Kind::kUnixSocket, path};
        return true;
    }
    if (text.rfind(kProxyPrefix, 0) == 0) {
        std::string path = text.substr(kProxyPrefix.size());
        // The path travels in one TLV.
        if (path.empty() || path[0] != '/' || path.size() > 0xFFFF - 64) return false;
        *endpoint = {Endpoint::Kind::kQmiProxy, path};
        return true;
    }
    if (!text.empty() && text[0] == '/') {
        *endpoint = {Endpoint::Kind::kCharDevice, text};
        return true;
    }
    return false;
}

std::string QmiDeviceFromEnvironment() {
    const char* env = std::getenv("QMI_DEVICE");
    return (env != nullptr && *env != '\0') ? std::string(env) : std::string(kQmiDefaultDevice);
}

int OpenTransport(const Endpoint& endpoint, int cancel_fd) {
    switch (endpoint.kind) {
        case Endpoint::Kind::kCharDevice:
            return ::open(endpoint.path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
        case Endpoint::Kind::kQmiProxy:
            return OpenThroughProxy(endpoint, cancel_fd);
        case Endpoint::Kind::kUnixSocket:
            break;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, endpoint.path.c_str(), endpoint.path.size());
    return ConnectUnix(address, sizeof address);
}

bool WriteFrame(int fd, const Endpoint& endpoint, const uint8_t* bytes, size_t length) {
    bool socket = endpoint.kind != Endpoint::Kind::kCharDevice;
    size_t done = 0;
    while (done < length) {
        ssize_t n = socket ? ::send(fd, bytes + done, length - done, MSG_NOSIGNAL)
                           : ::write(fd, bytes + done, length - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        // A character device takes a frame whole or not at all.
        if (!socket && static_cast<size_t>(n) != length) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace qmux
