// libFuzzer target: any bytes as a QMUX byte stream: frames cut by the
// assembler, each decoded, its TLV area walked and its result read.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/qmi_client/qmux_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> bytes(data, size);
    volatile uint64_t sink = 0;
    // The whole input as one frame, then as a stream.
    qmux::Message message;
    if (qmux::Decode(bytes, &message) == qmux::DecodeStatus::kOk) {
        std::vector<qmux::Tlv> tlvs;
        qmux::ParseTlvs(message.tlvs, &tlvs);
        for (const auto& tlv : tlvs)
            for (uint8_t byte : tlv.value) sink = sink + byte;
        if (auto result = qmux::ReadResult(message.tlvs)) sink = sink + 1;
        if (auto tlv = qmux::FindTlv(message.tlvs, qmux::kResultTlv)) sink = sink + tlv->type;
    }
    qmux::FrameAssembler assembler;
    assembler.Append(bytes);
    std::vector<uint8_t> frame;
    for (int n = 0; n < 10000 && assembler.Next(&frame); ++n) {
        qmux::Message each;
        if (qmux::Decode(frame, &each) == qmux::DecodeStatus::kOk) sink = sink + each.message_id;
    }
    return 0;
}
