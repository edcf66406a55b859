// libFuzzer target: arbitrary log packets and an arbitrary RAT measurement
// response through umtsopinfo's publishing steps (all but the PDN reader,
// which reads PPS objects and has its own target), the bearer report and
// every QoS decoder. The input's first 1331 bytes are the response
// (zero-padded when shorter); the rest is a sequence of packets, each a
// code selector byte, a 16-bit length and that many bytes (fewer when the
// input ends). Nothing may read outside a snapshot or the buffer.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "diaglog/log_snapshot_store.h"
#include "reports/lte/bearer.h"
#include "reports/lte/qos_decoders.h"
#include "reports/lte/umts_op_info.h"
#include "reports/report_fuzz_input.h"
#include "reports/wcdma/umts_neighbours.h"
#include "service/report_writer.h"

namespace {

constexpr uint16_t kCodes[] = {0x7131, 0x7130, 0x4004, 0x7136, 0x4000, 0x413A};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RatMeasInfoResponse response = rt::fuzz::StoreFuzzInput(data, size, kCodes);

    ReportWriter report(-1);  // encodes everything, writes nowhere
    PublishUmtsOpInfoWith(
        report, [](ReportWriter&) {}, [&](ReportWriter& r) { PublishUmtsNeighbours(r, response); });
    report.Write();
    PublishBearer(report);
    report.Write();
    // Every decoder over the response's first bytes as codes.
    for (size_t i = 0; i < std::min<size_t>(size, 64); ++i) {
        const auto field = static_cast<QosField>(
            i % (static_cast<size_t>(QosField::kTrafficHandlingPriority) + 1));
        AddQosAttribute(report, field, data[i], "fuzz");
    }
    report.Write();
    return 0;
}
