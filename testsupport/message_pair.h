// A connected pair of message sockets standing in for a PPS object: the
// code under test holds `ours` (as its object descriptor), the test plays
// the object's other side on `theirs`, one write being one message.
//
//   rt::test::MessagePair config;
//   context.config_fd = config.ours;
//   config.Send("@config\nims_enable::1\n");
//   std::vector<std::string> written = config.Drain();
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace rt::test {

// Every message waiting on `fd`, each read whole; waits up to wait_ms for
// the first (a wait only when none is expected), 50 ms for each next one.
inline std::vector<std::string> DrainMessages(int fd, int wait_ms = 0) {
    std::vector<std::string> messages;
    for (;;) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, messages.empty() ? wait_ms : 50) <= 0) return messages;
        char buffer[4096];
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) return messages;
        messages.emplace_back(buffer, static_cast<size_t>(n));
    }
}

struct MessagePair {
    // Non-blocking on both ends unless `blocking`.
    explicit MessagePair(bool blocking = false) {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | (blocking ? 0 : SOCK_NONBLOCK), 0, fds) == 0) {
            ours = fds[0];
            theirs = fds[1];
        }
    }
    ~MessagePair() {
        if (ours >= 0) ::close(ours);
        if (theirs >= 0) ::close(theirs);
    }
    MessagePair(const MessagePair&) = delete;
    MessagePair& operator=(const MessagePair&) = delete;

    bool Send(const std::string& text) const {
        return ::write(theirs, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    // Every message the code under test wrote.
    std::vector<std::string> Drain(int wait_ms = 0) const { return DrainMessages(theirs, wait_ms); }

    int ours = -1;
    int theirs = -1;
};

}  // namespace rt::test
