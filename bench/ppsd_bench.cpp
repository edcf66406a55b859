// A request and its reply through a server object of the broker, beside the
// same exchange over raw sockets, in one run.
//
//   broker: client --write--> ppsd --> echo server --write--> ppsd --> client
//   raw:    client --write--> relay --> echo --write--> relay --> client
//   direct: client --write--> echo --write--> client
//
// Both paths cross two processes in the middle and four socket hops per
// round trip; the raw relay is a poll loop that forwards each message as it
// is, so the difference is what the broker itself costs (routing, the client
// prefix, the object-line rewrite). Each iteration is one blocking round
// trip; its latency is recorded and the medians and their ratios are
// printed at the end. The direct ping-pong is the floor: one process in the
// middle, two socket hops.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "testsupport/child_process.h"

namespace {

constexpr const char* kRequest = "msg::radiostats\nid::17\n";

double g_broker_median_us = 0;
double g_raw_median_us = 0;
double g_direct_median_us = 0;

double Median(std::vector<double>& samples) {
    if (samples.empty()) return 0;
    std::nth_element(samples.begin(), samples.begin() + static_cast<long>(samples.size() / 2),
                     samples.end());
    return samples[samples.size() / 2];
}

// Runs the benchmark's iterations as blocking round trips (`round_trip`
// sends the request and reads the answer, false on failure); records the
// median latency in microseconds as a counter and returns it.
template <class RoundTrip>
double MeasureRoundTrips(benchmark::State& state, RoundTrip round_trip) {
    std::vector<double> samples;
    samples.reserve(1 << 20);
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        if (!round_trip()) {
            state.SkipWithError("round trip failed");
            break;
        }
        samples.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    double median = Median(samples);
    state.counters["median_us"] = median;
    return median;
}

void Stop(pid_t pid) {
    if (pid <= 0) return;
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

// The echoing server: answers each client message to that client with the
// same lines. Reports readiness on `ready_fd`.
[[noreturn]] void EchoServer(int ready_fd) {
    int fd = pps_open("/pps/bench/control?server", O_RDWR | O_CREAT | O_TRUNC, 0666);
    if (fd < 0 || ::write(ready_fd, "r", 1) != 1) ::_exit(1);
    int fl = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
    char buffer[4096];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) ::_exit(0);
        // "@control.<id>\n..." is a request: send it straight back.
        if (buffer[0] == '@' && ::write(fd, buffer, static_cast<size_t>(n)) != n) ::_exit(2);
    }
}

void BM_BrokerRequestReply(benchmark::State& state) {
    rt::test::TempDir dir;
    std::string socket = dir.file("ppsd.sock");
    rt::test::ChildProcess ppsd({rt::test::BinPath("ppsd"), "--socket", socket, "--quiet"});
    for (int i = 0; i < 500 && ::access(socket.c_str(), F_OK) != 0; ++i) ::usleep(10000);
    ::setenv("PPS_SOCKET", socket.c_str(), 1);

    int ready[2];
    if (::pipe(ready) != 0) return state.SkipWithError("pipe");
    pid_t server = ::fork();
    if (server == 0) EchoServer(ready[1]);
    char byte;
    if (::read(ready[0], &byte, 1) != 1) {
        Stop(server);
        return state.SkipWithError("echo server did not start");
    }
    int client = pps_open("/pps/bench/control?wait", O_RDWR);
    if (client < 0) {
        Stop(server);
        return state.SkipWithError("client open failed");
    }
    char reply[4096];
    const size_t length = std::strlen(kRequest);
    g_broker_median_us = MeasureRoundTrips(state, [&] {
        return ::write(client, kRequest, length) == static_cast<ssize_t>(length) &&
               ::read(client, reply, sizeof reply) > 0;
    });
    ::close(client);
    Stop(server);
    ::close(ready[0]);
    ::close(ready[1]);
}

// Forwards each message between two sockets, with poll, as a broker would.
[[noreturn]] void Relay(int a, int b) {
    pollfd fds[2] = {{a, POLLIN, 0}, {b, POLLIN, 0}};
    char buffer[4096];
    for (;;) {
        if (::poll(fds, 2, -1) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].revents == 0) continue;
            ssize_t n = ::recv(fds[i].fd, buffer, sizeof buffer, 0);
            if (n <= 0) ::_exit(0);
            if (::send(fds[1 - i].fd, buffer, static_cast<size_t>(n), MSG_NOSIGNAL) != n)
                ::_exit(1);
        }
    }
}

[[noreturn]] void Echo(int fd) {
    char buffer[4096];
    for (;;) {
        ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0 || ::send(fd, buffer, static_cast<size_t>(n), MSG_NOSIGNAL) != n) ::_exit(0);
    }
}

void BM_RawTwoHopPingPong(benchmark::State& state) {
    int client_relay[2], relay_echo[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, client_relay) != 0 ||
        ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, relay_echo) != 0)
        return state.SkipWithError("socketpair");
    pid_t relay = ::fork();
    if (relay == 0) Relay(client_relay[1], relay_echo[0]);
    pid_t echo = ::fork();
    if (echo == 0) Echo(relay_echo[1]);
    int client = client_relay[0];
    char reply[4096];
    const size_t length = std::strlen(kRequest);
    g_raw_median_us = MeasureRoundTrips(state, [&] {
        return ::send(client, kRequest, length, 0) == static_cast<ssize_t>(length) &&
               ::recv(client, reply, sizeof reply, 0) > 0;
    });
    Stop(relay);
    Stop(echo);
    for (int fd : {client_relay[0], client_relay[1], relay_echo[0], relay_echo[1]}) ::close(fd);
}

void BM_RawDirectPingPong(benchmark::State& state) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) != 0)
        return state.SkipWithError("socketpair");
    pid_t echo = ::fork();
    if (echo == 0) Echo(pair[1]);
    char reply[4096];
    const size_t length = std::strlen(kRequest);
    g_direct_median_us = MeasureRoundTrips(state, [&] {
        return ::send(pair[0], kRequest, length, 0) == static_cast<ssize_t>(length) &&
               ::recv(pair[0], reply, sizeof reply, 0) > 0;
    });
    Stop(echo);
    ::close(pair[0]);
    ::close(pair[1]);
}

BENCHMARK(BM_RawDirectPingPong)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_RawTwoHopPingPong)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_BrokerRequestReply)->MinTime(2.0)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (g_broker_median_us > 0 && g_raw_median_us > 0 && g_direct_median_us > 0)
        std::printf(
            "median round trip: broker %.2f us, raw relayed %.2f us (ratio %.2f), raw direct %.2f "
            "us "
            "(ratio %.2f)\n",
            g_broker_median_us, g_raw_median_us, g_broker_median_us / g_raw_median_us,
            g_direct_median_us, g_broker_median_us / g_direct_median_us);
    return 0;
}
