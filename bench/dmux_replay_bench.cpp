// Replay of the largest real capture through what a file source does per
// byte: HDLC deframing with CRC checks, frame parsing, multi-SIM unwrapping,
// the log-code mask, version translation and the daemon's snapshot store, on
// one core. Each iteration also times a plain memchr scan for the HDLC flag
// over the same bytes, the floor any deframer has to touch them at, so the
// two rates and their ratio come from the same run and the same machine
// load: scan_B/s, bytes_per_second (the library) and x_scan (library time
// over scan time). Times are this thread's CPU time: the machine may be
// shared, and time spent waiting for a core is neither side's.
#include <benchmark/benchmark.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <vector>

#include "diaglog/log_snapshot_store.h"
#include "platform/dmux/diag_stream.h"
#include "platform/dmux/log_code_mask.h"
#include "testsupport/child_process.h"

namespace {

double CpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// The 29 codes the daemon subscribes.
constexpr uint16_t kSubscribed[] = {0x7130, 0x7131, 0x7136, 0x7135, 0x4005, 0x410C, 0x4110, 0x4111,
                                    0x4116, 0x4125, 0x4127, 0x421C, 0x4004, 0x4221, 0x4156, 0x413A,
                                    0x4165, 0x4138, 0x4000, 0xB0C2, 0xB179, 0xB19B, 0xB185, 0xB087,
                                    0xB081, 0xB097, 0xB091, 0xB0EE, 0xB17F};

void StoreRecord(void*, uint16_t code, std::span<const uint8_t> record) {
    DM_recv_log_packet_cb(nullptr, code, record.data(), static_cast<uint32_t>(record.size()));
}

// Counts the flags: every byte looked at once, nothing else done.
size_t ScanFlags(const std::vector<uint8_t>& bytes) {
    size_t flags = 0;
    const uint8_t* p = bytes.data();
    const uint8_t* end = p + bytes.size();
    while ((p = static_cast<const uint8_t*>(std::memchr(p, dmux::kHdlcFlag, end - p))) != nullptr) {
        ++flags;
        ++p;
    }
    return flags;
}

// `store`: records go on to the daemon's snapshot store; without it the
// DM library alone is timed (deframe, CRC, parse, mask, translate, count).
void BM_ReplayCapture(benchmark::State& state, const char* file, bool store) {
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
    double scan_seconds = 0;
    double replay_seconds = 0;
    for (auto _ : state) {
        double t0 = CpuSeconds();
        benchmark::DoNotOptimize(ScanFlags(bytes));
        double t1 = CpuSeconds();
        dmux::DiagStream stream(&mask, store ? StoreRecord : nullptr, nullptr);
        stream.Feed(bytes);
        stream.Finish();
        double t2 = CpuSeconds();
        packets += stream.stats().log_packets;
        delivered += stream.stats().delivered;
        benchmark::DoNotOptimize(delivered);
        scan_seconds += t1 - t0;
        replay_seconds += t2 - t1;
        state.SetIterationTime(t2 - t1);
    }
    double total = static_cast<double>(state.iterations()) * static_cast<double>(bytes.size());
    state.SetBytesProcessed(static_cast<int64_t>(total));
    state.counters["scan_B/s"] = total / scan_seconds;
    state.counters["x_scan"] = replay_seconds / scan_seconds;
    state.counters["packets/s"] = static_cast<double>(packets) / replay_seconds;
    state.counters["delivered/s"] = static_cast<double>(delivered) / replay_seconds;
}

BENCHMARK_CAPTURE(BM_ReplayCapture, sprint, "mi-core_sprint.mi2log", true)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplayCapture, sprint_library_only, "mi-core_sprint.mi2log", false)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReplayCapture, offline_log_example, "mi-core_offline_log_example.mi2log", true)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
