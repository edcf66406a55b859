// libFuzzer target: arbitrary log packets and an arbitrary RAT measurement
// response through what lteopinfo publishes of them (PublishLteRadio: all
// but the APN and PDN readers, which read PPS objects and have their own
// target).
// The input's first 1331 bytes are the response (zero-padded when
// shorter); the rest is a sequence of packets, each a code selector byte, a
// 16-bit length and that many bytes (fewer when the input ends). Nothing
// may read outside a snapshot, an RLC list or entries array, or the buffer.
#include <cstddef>
#include <cstdint>

#include "diaglog/log_snapshot_store.h"
#include "reports/lte/lte_op_info.h"
#include "reports/report_fuzz_input.h"
#include "service/report_writer.h"

namespace {

constexpr uint16_t kCodes[] = {0xB0C2, 0xB0EE, 0xB179, 0xB17F, 0xB185,
                               0xB19B, 0xB081, 0xB091, 0xB087, 0xB097};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RatMeasInfoResponse response = rt::fuzz::StoreFuzzInput(data, size, kCodes);

    ReportWriter report(-1);  // encodes everything, writes nowhere
    PublishLteRadio(report, [&](ReportWriter& r) { PublishLteGeranNeighbours(r, response); });
    report.Write();
    return 0;
}
