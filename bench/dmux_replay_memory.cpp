// Replays one capture file through the DM library (DIAG_DEVICE=file:...),
// every code enabled, and prints the process's peak resident memory: it
// must not grow with the size of the file.
//   dmux_replay_memory /tmp/big.qmdl
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/dmux/kora_dmc.h"

namespace {
void Ignore(void*, uint32_t, const uint8_t*, uint32_t) {}
}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s capture\n", argv[0]);
        return 2;
    }
    setenv("DIAG_DEVICE", ("file:" + std::string(argv[1])).c_str(), 1);
    uint32_t client = KORA_DMC_CLIENT_ID, connection = 0, registration = 0, status = 0;
    if (kora_dmc_con_init(1, &connection, &client) != 0) return 1;
    kora_dmc_log_init(client, Ignore, &registration, nullptr);
    for (uint32_t equipment : {1u, 4u, 7u, 11u}) {
        std::vector<uint8_t> request(KORA_DMC_LOG_CONFIG_SIZE, 0xFF);
        request[0] = static_cast<uint8_t>(equipment);
        request[1] = request[2] = request[3] = 0;
        uint32_t last = 0xFFF;
        for (int i = 0; i < 4; ++i) request[4 + i] = static_cast<uint8_t>(last >> (8 * i));
        kora_dmc_set_log_config(client, KORA_DMC_OP_SET_LOG_MASK, request.data(),
                                static_cast<uint32_t>(request.size()), &status);
    }
    kora_dmc_stats stats{};
    auto start = std::chrono::steady_clock::now();
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        kora_dmc_get_stats(&stats);
    } while (stats.replay_passes == 0);
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("frames good %llu bad %llu delivered %llu translated %llu dropped %llu\n",
                static_cast<unsigned long long>(stats.frames_good),
                static_cast<unsigned long long>(stats.frames_bad),
                static_cast<unsigned long long>(stats.delivered),
                static_cast<unsigned long long>(stats.translated),
                static_cast<unsigned long long>(stats.dropped));
    std::printf("replay %.2f s, max RSS %ld KiB\n", seconds, usage.ru_maxrss);
    kora_dmc_con_release(&client);
    return 0;
}
