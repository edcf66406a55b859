#include "platform/qmi_client/transport.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/qmi_client/qmi_client.h"

namespace qmux {

bool ParseEndpoint(const std::string& text, Endpoint* endpoint) {
    static const std::string kUnixPrefix = "unix:";
    if (text.rfind(kUnixPrefix, 0) == 0) {
        std::string path = text.substr(kUnixPrefix.size());
        if (path.empty() || path.size() >= sizeof(sockaddr_un{}.sun_path)) return false;
        *endpoint = {Endpoint::Kind::kUnixSocket, path};
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

int OpenTransport(const Endpoint& endpoint) {
    if (endpoint.kind == Endpoint::Kind::kCharDevice) {
        return ::open(endpoint.path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, endpoint.path.c_str(), endpoint.path.size());
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

bool WriteFrame(int fd, const Endpoint& endpoint, const uint8_t* bytes, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t n = endpoint.kind == Endpoint::Kind::kUnixSocket
                        ? ::send(fd, bytes + done, length - done, MSG_NOSIGNAL)
                        : ::write(fd, bytes + done, length - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        // A character device takes a frame whole or not at all.
        if (endpoint.kind == Endpoint::Kind::kCharDevice && static_cast<size_t>(n) != length) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace qmux
