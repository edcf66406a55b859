#include "tools/fieldtest/guarded_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

namespace fieldtest {

namespace {

using Clock = std::chrono::steady_clock;

thread_local bool close_after_response = false;

int MillisecondsUntil(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<long long>(0, left.count()));
}

bool WaitFor(int sock, short events, int timeout_ms) {
    pollfd entry{sock, events, 0};
    return ::poll(&entry, 1, timeout_ms) > 0 && (entry.revents & (events | POLLHUP | POLLERR));
}

void AddressOf(const sockaddr_storage& addr, std::string& ip, int& port) {
    char text[INET6_ADDRSTRLEN] = "";
    if (addr.ss_family == AF_INET) {
        const auto& in = reinterpret_cast<const sockaddr_in&>(addr);
        ::inet_ntop(AF_INET, &in.sin_addr, text, sizeof text);
        port = ntohs(in.sin_port);
    } else if (addr.ss_family == AF_INET6) {
        const auto& in6 = reinterpret_cast<const sockaddr_in6&>(addr);
        ::inet_ntop(AF_INET6, &in6.sin6_addr, text, sizeof text);
        port = ntohs(in6.sin6_port);
    }
    ip = text;
}

std::string PeerAddress(int sock) {
    sockaddr_storage addr{};
    socklen_t size = sizeof addr;
    std::string ip;
    int port = 0;
    if (::getpeername(sock, reinterpret_cast<sockaddr*>(&addr), &size) == 0)
        AddressOf(addr, ip, port);
    return ip;
}

// A connection's socket as cpp-httplib reads and writes it: reads end at
// the request's deadline, writes after kWriteTimeout without progress.
class ConnectionStream : public httplib::Stream {
  public:
    explicit ConnectionStream(int sock) : sock_(sock) {}

    // Waits for the next request to begin; false when the connection stays
    // idle (or closes) past kIdleTimeout.
    bool WaitForRequest() {
        if (begin_ < end_) return true;
        auto idle =
            std::chrono::duration_cast<std::chrono::milliseconds>(GuardedServer::kIdleTimeout);
        return WaitFor(sock_, POLLIN, static_cast<int>(idle.count()));
    }
    void StartRequest() { deadline_ = Clock::now() + GuardedServer::kRequestDeadline; }
    // Whether a read has hit the request's deadline: the connection ends
    // rather than waiting for the rest.
    bool late() const { return late_; }

    bool is_readable() const override {
        return begin_ < end_ || WaitFor(sock_, POLLIN, MillisecondsUntil(deadline_));
    }
    bool is_writable() const override {
        auto timeout =
            std::chrono::duration_cast<std::chrono::milliseconds>(GuardedServer::kWriteTimeout);
        return WaitFor(sock_, POLLOUT, static_cast<int>(timeout.count()));
    }
    ssize_t read(char* ptr, size_t size) override {
        if (begin_ == end_) {
            if (!WaitFor(sock_, POLLIN, MillisecondsUntil(deadline_))) {
                late_ = true;
                return -1;
            }
            ssize_t n = ::recv(sock_, buffer_, sizeof buffer_, 0);
            if (n <= 0) return n;
            begin_ = 0;
            end_ = static_cast<size_t>(n);
        }
        size_t n = std::min(size, end_ - begin_);
        std::memcpy(ptr, buffer_ + begin_, n);
        begin_ += n;
        return static_cast<ssize_t>(n);
    }
    ssize_t write(const char* ptr, size_t size) override {
        if (!is_writable()) return -1;
        return ::send(sock_, ptr, size, MSG_NOSIGNAL);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage addr{};
        socklen_t size = sizeof addr;
        if (::getpeername(sock_, reinterpret_cast<sockaddr*>(&addr), &size) == 0)
            AddressOf(addr, ip, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage addr{};
        socklen_t size = sizeof addr;
        if (::getsockname(sock_, reinterpret_cast<sockaddr*>(&addr), &size) == 0)
            AddressOf(addr, ip, port);
    }
    socket_t socket() const override { return sock_; }

  private:
    int sock_;
    Clock::time_point deadline_ = Clock::now();
    char buffer_[4096];
    size_t begin_ = 0, end_ = 0;
    bool late_ = false;
};

}  // namespace

// A thread per connection; finished ones are joined as new ones start, the
// rest when the server stops (once their sockets are shut down).
class GuardedServer::ConnectionThreads : public httplib::TaskQueue {
  public:
    explicit ConnectionThreads(GuardedServer& server) : server_(server) {}
    void enqueue(std::function<void()> fn) override {
        std::erase_if(threads_, [](Running& running) {
            if (!running.done->load()) return false;
            running.thread.join();
            return true;
        });
        auto done = std::make_shared<std::atomic<bool>>(false);
        threads_.push_back({std::thread([fn = std::move(fn), done] {
                                fn();
                                *done = true;
                            }),
                            done});
    }
    void shutdown() override {
        server_.ShutDownConnections();
        for (Running& running : threads_) running.thread.join();
        threads_.clear();
    }

  private:
    struct Running {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    GuardedServer& server_;
    std::vector<Running> threads_;  // touched by the accepting thread only
};

GuardedServer::GuardedServer() {
    new_task_queue = [this] { return new ConnectionThreads(*this); };
}

bool GuardedServer::Bind(const std::string& host, int port) {
    // cpp-httplib listens with a backlog of 5: a burst of connections
    // (a page's parallel requests, or a client that opens many) overflows
    // it and the kernel drops their SYNs, which costs each a second or more.
    return bind_to_port(host, port) && ::listen(svr_sock_, kListenBacklog) == 0;
}

void GuardedServer::CloseAfterResponse() {
    close_after_response = true;
}

bool GuardedServer::Admit(int sock, const std::string& address) {
    std::lock_guard lock(mutex_);
    if (stopping_ || connections_.size() >= kMaxConnections ||
        per_address_[address] >= kMaxConnectionsPerAddress)
        return false;
    connections_[sock] = address;
    ++per_address_[address];
    return true;
}

void GuardedServer::Leave(int sock, const std::string& address) {
    std::lock_guard lock(mutex_);
    connections_.erase(sock);
    if (--per_address_[address] == 0) per_address_.erase(address);
}

void GuardedServer::ShutDownConnections() {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const auto& [sock, address] : connections_) ::shutdown(sock, SHUT_RDWR);
}

bool GuardedServer::process_and_close_socket(socket_t sock) {
    std::string address = PeerAddress(sock);
    bool admitted = Admit(sock, address);
    if (!admitted) {
        static const char kBusy[] =
            "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        [[maybe_unused]] ssize_t sent = ::send(sock, kBusy, sizeof kBusy - 1, MSG_NOSIGNAL);
    } else {
        ConnectionStream stream(sock);
        for (size_t served = 0; served < kMaxRequestsPerConnection && svr_sock_ != INVALID_SOCKET;
             ++served) {
            if (!stream.WaitForRequest()) break;
            stream.StartRequest();
            close_after_response = false;
            bool last = served + 1 == kMaxRequestsPerConnection;
            bool closed = false;
            if (!process_request(stream, last, closed, nullptr) || closed || close_after_response ||
                stream.late())
                break;
        }
        Leave(sock, address);
    }
    ::shutdown(sock, SHUT_RDWR);
    ::close(sock);
    return admitted;
}

int StreamSlots::Take(const std::string& address) {
    std::lock_guard lock(mutex_);
    if (per_address_[address] >= per_address_limit_) return 429;
    if (open_ >= overall_) return 503;
    ++per_address_[address];
    ++open_;
    return 0;
}

void StreamSlots::Give(const std::string& address) {
    std::lock_guard lock(mutex_);
    --open_;
    if (--per_address_[address] == 0) per_address_.erase(address);
}

}  // namespace fieldtest
