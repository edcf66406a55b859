// One raw request round trip through the library and a modemsim process:
// the misc-information request the 3gpp2info report makes. Reports the
// median and the 99th percentile of the per-request time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <vector>

#include "platform/qmi_client/qmi_client.h"
#include "testsupport/child_process.h"

namespace {

const qmi_idl_service_object kVendorObject = {2, 1, 0xE3, 0x14, {0, 0, 0}, {}, nullptr};

void BM_RawRoundTrip(benchmark::State& state) {
    rt::test::TempDir dir;
    std::string endpoint = "unix:" + dir.file("qmi.sock");
    rt::test::ChildProcess modem({rt::test::BinPath("modemsim"), "--qmi", endpoint, "--diag",
                                  "unix:" + dir.file("diag.sock")});
    if (!modem.WaitForStderr("modemsim: ready")) {
        state.SkipWithError("modemsim did not start");
        return;
    }
    setenv("QMI_DEVICE", endpoint.c_str(), 1);
    int handle = qmi_init(nullptr, nullptr);
    qmi_service_info info[1] = {};
    unsigned entries = 1, services = 1;
    qmi_client_type client = 0;
    if (handle < 0 || qmi_client_get_service_list(&kVendorObject, info, &entries, &services) != 0 ||
        qmi_client_init(info, &kVendorObject, nullptr, nullptr, nullptr, &client) != 0) {
        state.SkipWithError("cannot open the vendor client");
        return;
    }
    uint8_t request[kQmiRawRequestHeaderLen] = {};
    uint8_t response[64];
    std::vector<double> micros;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        int rc = qmi_client_send_raw_msg_sync(client, 0x14, request, sizeof request, response,
                                              sizeof response, nullptr, 2000);
        auto end = std::chrono::steady_clock::now();
        if (rc != 0) {
            state.SkipWithError("request failed");
            break;
        }
        micros.push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
    qmi_client_release(client);
    qmi_release(handle);
    unsetenv("QMI_DEVICE");
    // modemsim logs a line per request on its stderr: part of the round trip.
    if (!micros.empty()) {
        std::sort(micros.begin(), micros.end());
        state.counters["median_us"] = micros[micros.size() / 2];
        state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    }
}
BENCHMARK(BM_RawRoundTrip)->Unit(benchmark::kMicrosecond)->Iterations(5000);

}  // namespace

BENCHMARK_MAIN();
