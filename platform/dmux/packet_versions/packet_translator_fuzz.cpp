// libFuzzer target over the packet translator: the first two bytes pick
// the log code, the rest is the log record. A delivered record must lie
// inside the input or the translator's buffer and never be larger than
// the biggest layout.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/dmux/packet_versions/packet_translator.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    static dmux::PacketTranslator translator;
    uint16_t code = static_cast<uint16_t>(data[0] | data[1] << 8);
    std::span<const uint8_t> record(data + 2, size - 2);
    dmux::Translation t = translator.Translate(code, record);
    volatile uint8_t sink = 0;
    for (uint8_t b : t.record) sink = sink ^ b;  // reads every delivered byte
    if (t.verdict == dmux::VersionVerdict::kAsIs && t.record.data() != record.data()) std::abort();
    if (t.verdict == dmux::VersionVerdict::kDropped && !t.record.empty()) std::abort();
    return 0;
}
