// Where the QMUX frames go: a unix stream socket ("unix:/path") or a QMI
// character device path (one read or write is one whole frame).
#pragma once

#include <string>

namespace qmux {

struct Endpoint {
    enum class Kind { kUnixSocket, kCharDevice };
    Kind kind = Kind::kUnixSocket;
    std::string path;
};

// "unix:/path" or a path starting with '/'; false for anything else.
bool ParseEndpoint(const std::string& text, Endpoint* endpoint);
// $QMI_DEVICE, or the default both the library and modemsim use.
std::string QmiDeviceFromEnvironment();

// A connected descriptor (close-on-exec), or -1 with errno.
int OpenTransport(const Endpoint& endpoint);
// Writes one whole frame; false when the transport is gone.
bool WriteFrame(int fd, const Endpoint& endpoint, const uint8_t* bytes, size_t length);

}  // namespace qmux
