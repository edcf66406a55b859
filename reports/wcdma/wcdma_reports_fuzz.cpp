// libFuzzer target: arbitrary log packets and an arbitrary RAT measurement
// response through the WCDMA reports. The input's first 1331 bytes are the
// response (zero-padded when shorter); the rest is a sequence of packets,
// each a code selector byte, a 16-bit length and that many bytes (fewer
// when the input ends). Nothing may read outside a snapshot or the buffer.
#include <cstddef>
#include <cstdint>

#include "diaglog/log_snapshot_store.h"
#include "reports/report_fuzz_input.h"
#include "reports/wcdma/compare_publish_radio_nw_info.h"
#include "reports/wcdma/hspa_op_info.h"
#include "reports/wcdma/radio_nw_info.h"
#include "reports/wcdma/tch_tx_pwr.h"
#include "reports/wcdma/umts_neighbours.h"
#include "service/report_writer.h"

namespace {

constexpr uint16_t kCodes[] = {0x4005, 0x410C, 0x4110, 0x4111, 0x4116, 0x4125,
                               0x4127, 0x4138, 0x4156, 0x4165, 0x421C, 0x7135};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RatMeasInfoResponse response = rt::fuzz::StoreFuzzInput(data, size, kCodes);

    ReportWriter report(-1);  // encodes everything, writes nowhere
    PublishRadioNwInfoWith(report, [&](ReportWriter& r, int* active_sets, int* monitored_sets) {
        MergeRadioNwInfo(r, response, active_sets, monitored_sets);
    });
    PublishHspaOpInfo(report);
    PublishTchTxPwr(report);
    PublishUmtsNeighbours(report, response);
    report.Write();
    return 0;
}
