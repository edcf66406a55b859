#include "platform/qmi_client/qmux_codec.h"

#include "platform/common/byte_reader.h"

namespace qmux {

namespace {

using rt::ByteReader;
using rt::PutU16;

// The smallest QMUX length any frame can carry: the header after 01 and a
// CTL message header.
constexpr size_t kMinQmuxLength = kQmuxHeaderLen - 1 + kCtlSduHeaderLen;

}  // namespace

const char* DecodeStatusName(DecodeStatus status) {
    switch (status) {
        case DecodeStatus::kOk:
            return "ok";
        case DecodeStatus::kTooShort:
            return "too short";
        case DecodeStatus::kBadInterfaceType:
            return "bad interface type";
        case DecodeStatus::kLengthMismatch:
            return "QMUX length mismatch";
        case DecodeStatus::kSduTooShort:
            return "message header too short";
        case DecodeStatus::kTlvLengthMismatch:
            return "TLV length mismatch";
    }
    return "unknown";
}

std::vector<uint8_t> Encode(const Message& message) {
    size_t sdu_header = message.is_ctl() ? kCtlSduHeaderLen : kServiceSduHeaderLen;
    size_t qmux_length = kQmuxHeaderLen - 1 + sdu_header + message.tlvs.size();
    if (qmux_length > 0xFFFF) return {};
    std::vector<uint8_t> frame;
    frame.reserve(qmux_length + 1);
    frame.push_back(kInterfaceType);
    PutU16(&frame, static_cast<uint16_t>(qmux_length));
    frame.push_back(message.qmux_flags);
    frame.push_back(message.service);
    frame.push_back(message.client_id);
    frame.push_back(message.flags);
    if (message.is_ctl()) {
        frame.push_back(static_cast<uint8_t>(message.transaction & 0xFF));
    } else {
        PutU16(&frame, message.transaction);
    }
    PutU16(&frame, message.message_id);
    PutU16(&frame, static_cast<uint16_t>(message.tlvs.size()));
    frame.insert(frame.end(), message.tlvs.begin(), message.tlvs.end());
    return frame;
}

DecodeStatus Decode(std::span<const uint8_t> frame, Message* message) {
    ByteReader reader(frame);
    uint8_t interface_type = 0;
    uint16_t qmux_length = 0;
    Message out;
    if (!reader.U8(&interface_type) || !reader.U16(&qmux_length) || !reader.U8(&out.qmux_flags) ||
        !reader.U8(&out.service) || !reader.U8(&out.client_id)) {
        return DecodeStatus::kTooShort;
    }
    if (interface_type != kInterfaceType) return DecodeStatus::kBadInterfaceType;
    if (static_cast<size_t>(qmux_length) + 1 != frame.size()) return DecodeStatus::kLengthMismatch;

    uint16_t tlv_length = 0;
    bool header_ok;
    if (out.is_ctl()) {
        uint8_t transaction = 0;
        header_ok = reader.U8(&out.flags) && reader.U8(&transaction) &&
                    reader.U16(&out.message_id) && reader.U16(&tlv_length);
        out.transaction = transaction;
    } else {
        header_ok = reader.U8(&out.flags) && reader.U16(&out.transaction) &&
                    reader.U16(&out.message_id) && reader.U16(&tlv_length);
    }
    if (!header_ok) return DecodeStatus::kSduTooShort;
    if (reader.remaining() != tlv_length) return DecodeStatus::kTlvLengthMismatch;
    std::span<const uint8_t> tlvs = reader.Rest();
    out.tlvs.assign(tlvs.begin(), tlvs.end());
    *message = std::move(out);
    return DecodeStatus::kOk;
}

void FrameAssembler::Append(std::span<const uint8_t> bytes) {
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

bool FrameAssembler::Next(std::vector<uint8_t>* frame) {
    for (;;) {
        if (buffer_.empty()) return false;
        if (buffer_[0] != kInterfaceType) {
            buffer_.erase(buffer_.begin());
            ++dropped_;
            continue;
        }
        if (buffer_.size() < 3) return false;
        size_t qmux_length = buffer_[1] | (buffer_[2] << 8);
        if (qmux_length < kMinQmuxLength) {
            // No frame is that short: this 01 was not a frame's start.
            buffer_.erase(buffer_.begin());
            ++dropped_;
            continue;
        }
        if (buffer_.size() < qmux_length + 1) return false;
        frame->assign(buffer_.begin(), buffer_.begin() + static_cast<long>(qmux_length + 1));
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<long>(qmux_length + 1));
        return true;
    }
}

void AppendTlv(std::vector<uint8_t>* area, uint8_t type, std::span<const uint8_t> value) {
    area->push_back(type);
    PutU16(area, static_cast<uint16_t>(value.size()));
    area->insert(area->end(), value.begin(), value.end());
}

bool ParseTlvs(std::span<const uint8_t> area, std::vector<Tlv>* tlvs) {
    ByteReader reader(area);
    while (reader.remaining() > 0) {
        uint8_t type = 0;
        uint16_t length = 0;
        std::span<const uint8_t> value;
        if (!reader.U8(&type) || !reader.U16(&length) || !reader.Bytes(length, &value)) {
            return false;
        }
        tlvs->push_back({type, value});
    }
    return true;
}

std::optional<Tlv> FindTlv(std::span<const uint8_t> area, uint8_t type) {
    std::vector<Tlv> tlvs;
    ParseTlvs(area, &tlvs);
    for (const Tlv& tlv : tlvs)
        if (tlv.type == type) return tlv;
    return std::nullopt;
}

std::optional<Result> ReadResult(std::span<const uint8_t> area) {
    std::optional<Tlv> tlv = FindTlv(area, kResultTlv);
    if (!tlv) return std::nullopt;
    ByteReader reader(tlv->value);
    Result result;
    if (!reader.U16(&result.result) || !reader.U16(&result.error)) return std::nullopt;
    return result;
}

std::vector<uint8_t> ResultTlvValue(Result result) {
    std::vector<uint8_t> value;
    PutU16(&value, result.result);
    PutU16(&value, result.error);
    return value;
}

}  // namespace qmux
