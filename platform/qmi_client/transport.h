// Where the QMUX frames go: a unix stream socket ("unix:/path"), a QMI
// character device path (one read or write is one whole frame), or a QMI
// device shared through libqmi's proxy ("qmi-proxy:/dev/cdc-wdm0").
#pragma once

#include <string>

namespace qmux {

// The proxy's abstract unix socket name (without the leading NUL).
inline constexpr const char* kQmiProxySocketName = "qmi-proxy";
// How long the proxy may take to open the device for us.
inline constexpr int kQmiProxyOpenTimeoutMs = 2000;

struct Endpoint {
    enum class Kind { kUnixSocket, kCharDevice, kQmiProxy };
    Kind kind = Kind::kUnixSocket;
    std::string path;  // the socket, or the device (also through the proxy)

    // Bytes come as a stream (frames may be split or joined), not one
    // frame per read.
    bool is_stream() const { return kind != Kind::kCharDevice; }
};

// "unix:/path", "qmi-proxy:/path" or a path starting with '/'; false for
// anything else.
bool ParseEndpoint(const std::string& text, Endpoint* endpoint);
// $QMI_DEVICE, or the default both the library and modemsim use.
std::string QmiDeviceFromEnvironment();

// A connected descriptor (close-on-exec), or -1 with errno. Through the
// proxy, the device is open once this returns; a byte on `cancel_fd`
// (when not -1) cuts the wait for the proxy short.
int OpenTransport(const Endpoint& endpoint, int cancel_fd = -1);
// Writes one whole frame; false when the transport is gone.
bool WriteFrame(int fd, const Endpoint& endpoint, const uint8_t* bytes, size_t length);

}  // namespace qmux
