// libFuzzer target: any text given as a scenario's "lte" section. The world
// built from it, at a moment taken from the input, must build its log
// packets and its type-4 answer without fault, and the DIAG library must
// take every packet, never drop one as malformed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/packet_versions/packet_translator.h"
#include "tools/modemsim/lte_log_packets.h"
#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/vendor_service.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    nlohmann::json section = nlohmann::json::parse(data, data + size, nullptr, false);
    if (section.is_discarded()) return 0;
    auto world = std::make_shared<const modemsim::LteWorld>(section);
    // The moment: from the input's length, so the same input is the same run.
    double seconds = double(size % 4096) * 7.3;
    modemsim::LteState state = world->At(seconds);
    dmux::PacketTranslator translator;
    for (const modemsim::LogPayload& packet : modemsim::LteLogPayloads(state)) {
        std::vector<uint8_t> record = dmux::BuildLogRecord(packet.code, 1, packet.payload);
        if (translator.Translate(packet.code, record).verdict == dmux::VersionVerdict::kDropped)
            std::abort();
    }
    modemsim::VendorService service(nlohmann::json::object(), nullptr, world);
    service.RatMeasValueAt(4, seconds);
    return 0;
}
