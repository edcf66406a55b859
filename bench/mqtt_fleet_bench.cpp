// How many report samples one local mosquitto carries: N publishers (one
// MQTT client each, as N devices' `fieldtest publish`) send a recorded
// sample at QoS 1, retained, on radio_tavora/<device>/<report>, paced to an
// offered rate; one subscriber on radio_tavora/+/+ (as `fieldtest serve
// --mqtt`) counts what arrives and how long it took. The offered rate is
// raised step by step until the broker no longer keeps up.
//
//   mqtt_fleet_bench [--publishers N] [--seconds S] SAMPLE.json
//
// Each payload starts with its send time (steady clock, ns) and a newline,
// then the sample; the latency is the subscriber's receive time minus it.
#include <mosquitto.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/eventually.h"
#include "testsupport/mosquitto_process.h"

namespace {

using Clock = std::chrono::steady_clock;

long long NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

const char* kReports[] = {"radionwinfo", "radiostats", "umtsopinfo", "hspaopinfo",
                          "lteopinfo",   "bearer",     "tchtxpwr",   "3gpp2info"};

struct Subscriber {
    std::mutex mutex;
    std::vector<long long> latencies_ns;
    std::atomic<long long> received{0};
    std::atomic<bool> subscribed{false};
    bool counting = false;
};

void OnMessage(mosquitto*, void* self, const mosquitto_message* message) {
    auto* sub = static_cast<Subscriber*>(self);
    if (message->retain || message->payloadlen <= 0) return;  // old samples, not this step's
    long long sent = std::atoll(static_cast<const char*>(message->payload));
    long long now = NowNs();
    sub->received++;
    std::lock_guard lock(sub->mutex);
    if (sub->counting) sub->latencies_ns.push_back(now - sent);
}

void OnSubscribe(mosquitto*, void* self, int, int, const int*) {
    static_cast<Subscriber*>(self)->subscribed = true;
}

mosquitto* Connect(int port, const std::string& id, void* user) {
    mosquitto* client = mosquitto_new(id.c_str(), true, user);
    // As many QoS 1 messages in flight as a publisher needs at the top rates.
    mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, 1000);
    if (mosquitto_connect(client, "127.0.0.1", port, 30) != MOSQ_ERR_SUCCESS) {
        std::fprintf(stderr, "mqtt_fleet_bench: %s cannot connect\n", id.c_str());
        std::exit(1);
    }
    mosquitto_loop_start(client);
    return client;
}

struct Step {
    double offered, delivered, share, median_ms, p99_ms;
};

Step RunStep(const std::vector<mosquitto*>& publishers, Subscriber& sub, const std::string& sample,
             double offered_per_s, double seconds) {
    {
        std::lock_guard lock(sub.mutex);
        sub.latencies_ns.clear();
        sub.counting = true;
    }
    long long before = sub.received;
    const double per_publisher = offered_per_s / static_cast<double>(publishers.size());
    std::atomic<long long> sent{0};
    std::vector<std::thread> threads;
    auto start = Clock::now();
    auto end = start + std::chrono::duration<double>(seconds);
    for (size_t p = 0; p < publishers.size(); ++p) {
        threads.emplace_back([&, p] {
            std::string device = "bench-" + std::to_string(p);
            auto period = std::chrono::duration<double>(1.0 / per_publisher);
            // Publishers start spread over one period, not all at once.
            auto next = start + std::chrono::duration_cast<Clock::duration>(
                                    period * (static_cast<double>(p) / publishers.size()));
            for (long n = 0; next < end; ++n) {
                std::this_thread::sleep_until(next);
                std::string topic = "radio_tavora/" + device + "/" + kReports[n % 8];
                std::string payload = std::to_string(NowNs()) + "\n" + sample;
                mosquitto_publish(publishers[p], nullptr, topic.c_str(),
                                  static_cast<int>(payload.size()), payload.data(), 1, true);
                sent++;
                next += std::chrono::duration_cast<Clock::duration>(period);
            }
        });
    }
    for (auto& t : threads) t.join();
    // What was sent gets a moment to arrive; what is later than that is lost
    // for this step.
    rt::test::Eventually([&] { return sub.received - before >= sent; }, 5000);
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    std::lock_guard lock(sub.mutex);
    sub.counting = false;
    std::vector<long long>& l = sub.latencies_ns;
    std::sort(l.begin(), l.end());
    auto at = [&](double q) {
        return l.empty() ? 0.0 : l[std::min(l.size() - 1, static_cast<size_t>(q * l.size()))] / 1e6;
    };
    double arrived = static_cast<double>(sub.received - before);
    return {sent / seconds, arrived / elapsed, sent > 0 ? 100 * arrived / sent : 0, at(0.5),
            at(0.99)};
}

}  // namespace

int main(int argc, char** argv) {
    int publisher_count = 50;
    double seconds = 3;
    std::string sample_file;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--publishers") == 0 && i + 1 < argc)
            publisher_count = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--seconds") == 0 && i + 1 < argc)
            seconds = std::atof(argv[++i]);
        else
            sample_file = argv[i];
    }
    std::string sample = rt::test::ReadFile(sample_file);
    if (sample.empty() || publisher_count < 1 || seconds <= 0) {
        std::fprintf(stderr,
                     "usage: mqtt_fleet_bench [--publishers N] [--seconds S] SAMPLE.json\n");
        return 2;
    }
    if (!rt::test::MosquittoProcess::Installed()) {
        std::fprintf(stderr, "mqtt_fleet_bench: mosquitto is not installed\n");
        return 77;
    }
    rt::test::MosquittoProcess broker;
    if (!broker.ready()) {
        std::fprintf(stderr, "mqtt_fleet_bench: mosquitto did not start\n");
        return 1;
    }
    mosquitto_lib_init();
    Subscriber sub;
    mosquitto* listener = Connect(broker.port(), "bench-screen", &sub);
    mosquitto_message_callback_set(listener, OnMessage);
    mosquitto_subscribe_callback_set(listener, OnSubscribe);
    mosquitto_subscribe(listener, nullptr, "radio_tavora/+/+", 1);
    rt::test::Eventually([&] { return sub.subscribed.load(); }, 5000);
    std::vector<mosquitto*> publishers;
    for (int p = 0; p < publisher_count; ++p)
        publishers.push_back(Connect(broker.port(), "bench-" + std::to_string(p), nullptr));

    std::printf("%d publishers, a %zu-byte sample, %.0f s a step, one subscriber\n",
                publisher_count, sample.size(), seconds);
    std::printf("%10s %12s %12s %10s %10s\n", "offered/s", "delivered/s", "arrived%", "median ms",
                "p99 ms");
    double capacity = 0;
    for (double offered : {500.0, 1000.0, 2000.0, 5000.0, 10000.0, 15000.0, 20000.0, 40000.0}) {
        Step step = RunStep(publishers, sub, sample, offered, seconds);
        double share = step.share;
        std::printf("%10.0f %12.0f %11.1f%% %10.2f %10.2f\n", step.offered, step.delivered, share,
                    step.median_ms, step.p99_ms);
        std::fflush(stdout);
        // Kept up: (nearly) everything arrived as fast as it was offered,
        // within a second at worst; a broker that falls behind delivers
        // late, and its rate drops below the offered one.
        if (share < 99 || step.delivered < 0.99 * step.offered || step.p99_ms > 1000) break;
        capacity = step.delivered;
    }
    std::printf("kept up with %.0f samples/s: e.g. %.0f devices x 8 reports every 2 s\n", capacity,
                capacity * 2 / 8);
    for (mosquitto* p : publishers) {
        mosquitto_disconnect(p);
        mosquitto_loop_stop(p, false);
        mosquitto_destroy(p);
    }
    mosquitto_disconnect(listener);
    mosquitto_loop_stop(listener, false);
    mosquitto_destroy(listener);
    mosquitto_lib_cleanup();
    return 0;
}
