// One lteopinfo round trip end to end: a client writes the request to the
// daemon's server object and waits for the reply, while radio_tavora reads
// its LTE snapshots, asks modemsim for the GERAN neighbours over QMI, asks
// devsim's OMA-DM client for the twenty APN leaves and reads the four PDNs
// of devsim's connection service. Reports the median and the 99th
// percentile of the per-request time.
#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"

namespace {

using rt::test::ChildProcess;
using rt::test::DaemonFixture;
using rt::test::DaemonOptions;

void BM_LteOpInfoRoundTrip(benchmark::State& state) {
    rt::test::TempDir dir;
    ChildProcess modem({rt::test::BinPath("modemsim"), "--qmi", "unix:" + dir.file("qmi.sock"),
                        "--diag", "unix:" + dir.file("diag.sock")});
    if (!modem.WaitForStderr("modemsim: ready")) return state.SkipWithError("modemsim");
    DaemonOptions options;
    options.create_omadm_control = true;  // devsim answers the APN leaves
    options.env = {"QMI_DEVICE=unix:" + dir.file("qmi.sock"),
                   "DIAG_DEVICE=unix:" + dir.file("diag.sock")};
    DaemonFixture daemon(options);
    if (!daemon.started()) return state.SkipWithError("radio_tavora did not start");
    // Log packets flow, and radionwinfo opens the QMI client that the
    // GERAN request of lteopinfo uses.
    daemon.WriteConfig({"diaglogmask::1"});
    if (daemon.Request("radionwinfo", "1", std::nullopt, 5000).empty())
        return state.SkipWithError("radionwinfo got no reply");
    // The path measured is the whole one: GERAN cells from modemsim and APN
    // leaves from devsim are in the report.
    daemon.Request("lteopinfo", "2", std::nullopt, 5000);
    const std::string report = daemon.ReadObject(rt::test::kStatusEutraObject);
    if (report.find("num_geran_meas:n:") == std::string::npos ||
        report.find("lte_apn1_Id:") == std::string::npos)
        return state.SkipWithError(("incomplete report:\n" + report).c_str());

    rt::test::PpsClientConnection control(rt::test::kControlObject, O_RDWR);
    if (!control.ok()) return state.SkipWithError("cannot open the control object");
    std::vector<double> micros;
    int id = 100;
    for (auto _ : state) {
        const std::string request = "msg::lteopinfo\nid::" + std::to_string(++id) + "\n";
        auto start = std::chrono::steady_clock::now();
        bool answered = control.Write(request);
        while (answered) {
            std::string reply = control.Read(5000);
            if (reply.empty()) answered = false;
            if (reply.find("\nres::lteopinfo") != std::string::npos) break;
        }
        auto end = std::chrono::steady_clock::now();
        if (!answered) {
            state.SkipWithError("lteopinfo got no reply");
            break;
        }
        micros.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
    if (!micros.empty()) {
        std::sort(micros.begin(), micros.end());
        state.counters["median_us"] = micros[micros.size() / 2];
        state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    }
}
BENCHMARK(BM_LteOpInfoRoundTrip)->Unit(benchmark::kMicrosecond)->Iterations(300);

}  // namespace

BENCHMARK_MAIN();
