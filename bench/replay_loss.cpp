// Replays one capture through the DM library again and again, as a client
// that sends its masks one equipment id at a time (with a pause before the
// later ones on some runs), and counts the runs that delivered fewer
// packets than the capture holds. bench/replay_under_load.sh runs it under
// a CPU hog.
//   replay_loss CAPTURE [RUNS]
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "platform/dmux/diag_stream.h"
#include "platform/dmux/kora_dmc.h"
#include "platform/dmux/log_code_mask.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<uint64_t> g_delivered{0};

void Count(void*, uint32_t, const uint8_t*, uint32_t) {
    g_delivered.fetch_add(1);
}

// What the capture holds for a client that enables every code: the
// library's own reading of the whole file, with no connection and no race.
uint64_t PacketsInCapture(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
    dmux::DiagStream stream(nullptr, nullptr, nullptr);
    stream.Feed(bytes);
    stream.Finish();
    return stream.stats().delivered;
}

bool SetFullMask(uint32_t client, uint32_t equipment_id) {
    std::vector<uint8_t> request(KORA_DMC_LOG_CONFIG_SIZE, 0xFF);
    const uint32_t last_item = 0xFFF;
    for (int i = 0; i < 4; ++i) {
        request[i] = static_cast<uint8_t>(equipment_id >> (8 * i));
        request[4 + i] = static_cast<uint8_t>(last_item >> (8 * i));
    }
    uint32_t status = 0;
    return kora_dmc_set_log_config(client, KORA_DMC_OP_SET_LOG_MASK, request.data(),
                                   KORA_DMC_LOG_CONFIG_SIZE, &status) == 0;
}

// One replay; the packets delivered once the last mask is in and the
// count stops short of `expected` for a bounded time.
uint64_t ReplayOnce(int run, uint64_t expected) {
    uint32_t client = KORA_DMC_CLIENT_ID, connection = 0, registration = 0;
    g_delivered = 0;
    if (kora_dmc_con_init(1, &connection, &client) != 0) return 0;
    kora_dmc_log_init(client, Count, &registration, nullptr);
    // Every fourth run sends its later masks right away, the others after
    // 100, 200 or 300 ms: a slow client, or one on a loaded machine.
    const auto pause = std::chrono::milliseconds(100 * (run % 4));
    for (uint32_t equipment_id = 0; equipment_id < 16; ++equipment_id) {
        if (equipment_id == 8) std::this_thread::sleep_for(pause);
        SetFullMask(client, equipment_id);
    }
    auto deadline = Clock::now() + std::chrono::seconds(10);
    while (g_delivered.load() < expected && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    uint64_t delivered = g_delivered.load();
    kora_dmc_con_release(&client);
    return delivered;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3 || std::string(argv[1]) == "--help") {
        std::fprintf(stderr, "usage: %s CAPTURE [RUNS]   (RUNS defaults to 200)\n", argv[0]);
        return 2;
    }
    const std::string capture = argv[1];
    const int runs = argc == 3 ? std::atoi(argv[2]) : 200;
    if (::access(capture.c_str(), R_OK) != 0) {
        std::fprintf(stderr, "replay_loss: cannot read %s\n", capture.c_str());
        return 2;
    }
    const uint64_t expected = PacketsInCapture(capture);
    if (expected == 0) {
        std::fprintf(stderr, "replay_loss: %s holds no log packet\n", capture.c_str());
        return 2;
    }
    ::unsetenv("DIAG_SUBSCRIPTION");
    ::setenv("DIAG_DEVICE", ("file:" + capture).c_str(), 1);
    std::printf("replay_loss: %s holds %llu packets; %d runs\n", capture.c_str(),
                static_cast<unsigned long long>(expected), runs);
    int lost = 0;
    for (int run = 0; run < runs; ++run) {
        uint64_t delivered = ReplayOnce(run, expected);
        if (delivered < expected) {
            ++lost;
            std::printf("run %d: delivered %llu of %llu\n", run + 1,
                        static_cast<unsigned long long>(delivered),
                        static_cast<unsigned long long>(expected));
        }
        if ((run + 1) % 20 == 0) std::printf("%d runs, %d lost\n", run + 1, lost);
        std::fflush(stdout);
    }
    std::printf("lost runs: %d of %d\n", lost, runs);
    return lost == 0 ? 0 : 1;
}
