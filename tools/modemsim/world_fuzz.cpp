// libFuzzer target: any text given as a scenario with "lte" and "wcdma"
// sections. The worlds built from it, at a moment taken from the input,
// must build their log packets and their RAT measurement answers (types 3
// and 4) without fault, and the DIAG library must take every packet, never
// drop one as malformed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/packet_versions/packet_translator.h"
#include "tools/modemsim/lte_log_packets.h"
#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/vendor_service.h"
#include "tools/modemsim/wcdma_log_packets.h"
#include "tools/modemsim/wcdma_world.h"

namespace {

void ExpectEveryPacketTaken(const std::vector<modemsim::LogPayload>& packets) {
    dmux::PacketTranslator translator;
    for (const modemsim::LogPayload& packet : packets) {
        std::vector<uint8_t> record = dmux::BuildLogRecord(packet.code, 1, packet.payload);
        if (translator.Translate(packet.code, record).verdict == dmux::VersionVerdict::kDropped)
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    nlohmann::json input = nlohmann::json::parse(data, data + size, nullptr, false);
    if (input.is_discarded()) return 0;
    auto section = [&](const char* name) {
        return input.is_object() && input.contains(name) ? input[name] : nlohmann::json::object();
    };
    // The WCDMA world reads its section over the defaults, as modemsim does.
    nlohmann::json wcdma_scenario = modemsim::DefaultWcdmaScenario();
    wcdma_scenario.merge_patch(section("wcdma"));

    auto lte = std::make_shared<const modemsim::LteWorld>(section("lte"));
    auto wcdma = std::make_shared<const modemsim::WcdmaWorld>(wcdma_scenario);
    // The moment: from the input's length, so the same input is the same run.
    double seconds = double(size % 4096) * 7.3;
    ExpectEveryPacketTaken(modemsim::LteLogPayloads(lte->At(seconds)));
    ExpectEveryPacketTaken(modemsim::WcdmaLogPayloads(wcdma->At(seconds)));
    modemsim::VendorService service(nlohmann::json::object(), wcdma, lte);
    service.RatMeasValueAt(3, seconds);
    service.RatMeasValueAt(4, seconds);
    return 0;
}
