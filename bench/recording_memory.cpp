// Records 1,000,000 samples as `fieldtest serve --record` takes them, into
// the disk recording and the screen's bounded recent values, as a drive
// test of many hours would, and prints the process's resident memory as it
// goes: once the recent values are full it must stay flat (the rows are on
// disk, not held). Small files make it open a new one every few seconds,
// and the rows are counted back from the files.
//   recording_memory [DIR]   (default: a fresh folder under /tmp, removed)
#include <fstream>
#include <string>

#include "testsupport/child_process.h"
#include "tools/fieldtest/disk_recording.h"
#include "tools/fieldtest/recording.h"

namespace {

long ResidentKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr long kSamples = 1'000'000, kPerReport = 10;
    constexpr size_t kFileBytes = 16u << 20;
    rt::test::TempDir scratch;
    std::string dir = argc > 1 ? argv[1] : scratch.file("recordings");
    fieldtest::DiskRecording recording(dir, kFileBytes);
    fieldtest::Recording recent;
    static_assert(fieldtest::Recording::kMaxRows < 100'000, "full before memory is first read");
    std::string error;
    if (!recording.Start(&error)) {
        std::fprintf(stderr, "recording_memory: %s\n", error.c_str());
        return 1;
    }
    fieldtest::Position position{true, 48.8566, 2.3522, "2024-06-10T06:13:20.000Z"};
    long start_kb = 0, peak_kb = 0;
    for (long sample = 0; sample < kSamples; sample += kPerReport) {
        nlohmann::ordered_json values;
        for (long i = 0; i < kPerReport; ++i)
            values["value" + std::to_string(i)] = -90.5 - static_cast<double>((sample + i) % 40);
        recording.Add(1718000000000 + sample, "modem0", "lteopinfo", values, position);
        recent.Add(1718000000000 + sample, "lteopinfo", values);
        if (sample % 100'000 == 0) {
            long kb = ResidentKb();
            if (sample == 100'000) start_kb = kb;
            peak_kb = std::max(peak_kb, kb);
            std::printf("%8ld samples: %ld kB resident\n", sample, kb);
        }
    }
    recording.Close();
    long rows = 0;
    auto files = recording.Files();
    for (const auto& file : files) {
        std::ifstream in(dir + "/" + file.name);
        for (std::string line; std::getline(in, line);) ++rows;
        --rows;  // the header
    }
    std::printf("%ld samples in %zu files; resident from 100000 samples on: %ld -> %ld kB\n", rows,
                files.size(), start_kb, peak_kb);
    // Flat: within 2 MB of what it was once the first files were written.
    bool flat = peak_kb - start_kb < 2048;
    if (rows != kSamples || !flat) {
        std::printf("recording_memory: FAILED (%s)\n",
                    rows != kSamples ? "rows lost" : "memory grew");
        return 1;
    }
    return 0;
}
