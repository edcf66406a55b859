// The web screen's HTTP server: cpp-httplib's request parsing and routing,
// with connections handled so that a few clients cannot take the screen
// away from the others.
//
// Why this design: cpp-httplib gives each connection a worker of a fixed
// pool for as long as it lasts, so 32 event streams or 40 clients that send
// their headers a byte at a time held every worker and the API answered
// nobody. Here each connection gets a thread of its own, and what a
// connection may hold is bounded instead:
//   - a request must arrive whole (headers and body) within kRequestDeadline
//     of its first byte, and an idle kept-alive connection is closed after
//     kIdleTimeout; a write that makes no progress for kWriteTimeout ends the
//     connection;
//   - at most kMaxConnections at once, kMaxConnectionsPerAddress from one
//     client address; one more is answered 503 and closed at once.
// Event streams, the only long-lived requests, are bounded by the routes
// themselves (StreamSlots). So a page's API call always finds a thread, and
// no client holds one for long unless it reads what it asked for.
#pragma once

#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace fieldtest {

class GuardedServer : public httplib::Server {
  public:
    static constexpr auto kRequestDeadline = std::chrono::seconds(5);
    static constexpr auto kIdleTimeout = std::chrono::seconds(5);
    static constexpr auto kWriteTimeout = std::chrono::seconds(5);
    static constexpr size_t kMaxConnections = 128;
    static constexpr size_t kMaxConnectionsPerAddress = 48;
    static constexpr size_t kMaxRequestsPerConnection = 100;

    static constexpr int kListenBacklog = 128;

    GuardedServer();
    // bind_to_port with a backlog that takes a burst of connections.
    bool Bind(const std::string& host, int port);
    // Ends the connection of the request being handled on this thread once
    // its response is written (a refused request whose body was not read).
    static void CloseAfterResponse();

  private:
    bool process_and_close_socket(socket_t sock) override;
    bool Admit(int sock, const std::string& address);
    void Leave(int sock, const std::string& address);
    // Wakes every connection's thread (a stopping server).
    void ShutDownConnections();

    class ConnectionThreads;
    std::mutex mutex_;
    bool stopping_ = false;
    std::map<int, std::string> connections_;  // socket -> client address
    std::map<std::string, size_t> per_address_;
};

// How many event streams may be open, overall and per client address.
class StreamSlots {
  public:
    StreamSlots(size_t overall, size_t per_address)
        : overall_(overall), per_address_limit_(per_address) {}
    // 0 when a stream for `address` may open (a slot is then taken), else
    // the status to refuse it with: 429 for this address, 503 overall.
    int Take(const std::string& address);
    void Give(const std::string& address);

  private:
    std::mutex mutex_;
    size_t overall_, per_address_limit_, open_ = 0;
    std::map<std::string, size_t> per_address_;
};

}  // namespace fieldtest
