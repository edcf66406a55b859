// Replay of the largest real capture through what a file source does per
// byte: HDLC deframing with CRC checks, frame parsing, the log-code mask and
// the daemon's snapshot store, on one core. Reports MB/s and packets/s.
#include <benchmark/benchmark.h>

#include <fstream>
#include <vector>

#include "diaglog/log_snapshot_store.h"
#include "platform/dmux/diag_stream.h"
#include "platform/dmux/log_code_mask.h"
#include "testsupport/child_process.h"

namespace {

// The 29 codes the daemon subscribes.
constexpr uint16_t kSubscribed[] = {0x7130, 0x7131, 0x7136, 0x7135, 0x4005, 0x410C, 0x4110, 0x4111,
                                    0x4116, 0x4125, 0x4127, 0x421C, 0x4004, 0x4221, 0x4156, 0x413A,
                                    0x4165, 0x4138, 0x4000, 0xB0C2, 0xB179, 0xB19B, 0xB185, 0xB087,
                                    0xB081, 0xB097, 0xB091, 0xB0EE, 0xB17F};

void StoreRecord(void*, uint16_t code, std::span<const uint8_t> record) {
    DM_recv_log_packet_cb(nullptr, code, record.data(), static_cast<uint32_t>(record.size()));
}

void BM_ReplayCapture(benchmark::State& state, const char* file) {
    std::string path = rt::test::CapturesDir() + "/" + file;
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                               std::istreambuf_iterator<char>()};
    if (bytes.empty()) {
        state.SkipWithError(("capture not found: " + path).c_str());
        return;
    }
    dmux::LogCodeMask mask;
    for (uint16_t code : kSubscribed) mask.Enable(code, true);
    uint64_t packets = 0;
    uint64_t delivered = 0;
    for (auto _ : state) {
        dmux::DiagStream stream(&mask, StoreRecord, nullptr);
        stream.Feed(bytes);
        stream.Finish();
        packets += stream.stats().log_packets;
        delivered += stream.stats().delivered;
        benchmark::DoNotOptimize(delivered);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
    state.counters["packets/s"] =
        benchmark::Counter(static_cast<double>(packets), benchmark::Counter::kIsRate);
    state.counters["delivered/s"] =
        benchmark::Counter(static_cast<double>(delivered), benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(BM_ReplayCapture, sprint, "mi-core_sprint.mi2log")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplayCapture, offline_log_example, "mi-core_offline_log_example.mi2log")
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
