// DIAG frame bodies (after HDLC deframing) of the kinds this library knows:
//
//   log packet        10 00 <len u16> <log record: len u16, code u16, ts u64, payload>
//   multi-SIM wrapper 98 01 00 00 <subscription u32> <a log packet as above>
//   log config        73 00 00 00 <operation u32> ...
//     set-mask command    operation 3, equipment id u32, last item u32, mask bytes
//     set-mask response   operation 3, status u32, equipment id u32, last item u32
//
// Everything else (debug messages 0x79/0x92, events 0x60, other responses,
// a capture tool's 0xEE EE marker frames) is "other" and skipped by readers.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/common/byte_reader.h"

namespace dmux {

inline constexpr uint8_t kDiagLogCommand = 0x10;
inline constexpr uint8_t kDiagLogConfigCommand = 0x73;
inline constexpr uint8_t kDiagMultiSimCommand = 0x98;
inline constexpr uint8_t kDiagCustomMarker = 0xEE;
inline constexpr uint32_t kLogConfigSetMask = 3;
inline constexpr size_t kLogRecordHeaderSize = 12;
inline constexpr size_t kMultiSimWrapperSize = 8;

enum class DiagFrameKind {
    kLogPacket,
    kLogConfig,  // a 0x73 command or response; decode with the functions below
    kMarker,     // 0xEE EE
    kOther,
    kMalformed,  // a log packet too short for its record header
};

struct DiagFrame {
    DiagFrameKind kind = DiagFrameKind::kOther;
    bool wrapped = false;       // came inside a multi-SIM wrapper
    uint32_t subscription = 0;  // the wrapper's subscription id
    uint16_t log_code = 0;
    // The log record (12-byte header then payload), cut to what the frame holds.
    std::span<const uint8_t> record;
};

// Inline (defined at the end): it runs once per frame.
inline DiagFrame ParseDiagFrame(std::span<const uint8_t> body);

// Fields of a log record header.
inline uint16_t LogRecordCode(std::span<const uint8_t> record);
uint64_t LogRecordTimestamp(std::span<const uint8_t> record);
// Timestamp in milliseconds: the upper 48 bits count 1.25 ms units.
double LogTimestampMs(uint64_t timestamp);

// Builds a log packet frame body (10 00 len, then the record), optionally
// wrapped for a subscription.
std::vector<uint8_t> BuildLogPacketBody(std::span<const uint8_t> record,
                                        std::optional<uint32_t> subscription = std::nullopt);
// Builds a log record: header (length = 12 + payload size, code, timestamp), then payload.
std::vector<uint8_t> BuildLogRecord(uint16_t code, uint64_t timestamp,
                                    std::span<const uint8_t> payload);

struct LogConfigSetMask {
    uint32_t equipment_id = 0;
    uint32_t last_item = 0;
    std::vector<uint8_t> mask;
};
struct LogConfigResponse {
    uint32_t operation = 0;
    uint32_t status = 0;
    uint32_t equipment_id = 0;
    uint32_t last_item = 0;
};

std::vector<uint8_t> BuildLogConfigSetMask(uint32_t equipment_id, uint32_t last_item,
                                           std::span<const uint8_t> mask);
std::optional<LogConfigSetMask> ParseLogConfigSetMask(std::span<const uint8_t> body);
std::vector<uint8_t> BuildLogConfigResponse(const LogConfigResponse& response);
std::optional<LogConfigResponse> ParseLogConfigResponse(std::span<const uint8_t> body);

inline uint16_t LogRecordCode(std::span<const uint8_t> record) {
    rt::ByteReader in(record);
    uint16_t code = 0;
    if (in.Skip(2)) in.U16(&code);
    return code;
}

namespace detail {

inline DiagFrame ParseLogPacket(std::span<const uint8_t> body) {
    DiagFrame frame;
    rt::ByteReader in(body);
    uint16_t length = 0;
    if (!in.Skip(2) /* command, "more" */ || !in.U16(&length) ||
        in.remaining() < kLogRecordHeaderSize) {
        frame.kind = DiagFrameKind::kMalformed;
        return frame;
    }
    frame.kind = DiagFrameKind::kLogPacket;
    frame.record = in.Take(length < kLogRecordHeaderSize ? in.remaining() : length);
    frame.log_code = LogRecordCode(frame.record);
    return frame;
}

}  // namespace detail

inline DiagFrame ParseDiagFrame(std::span<const uint8_t> body) {
    DiagFrame frame;
    if (body.empty()) return frame;
    switch (body[0]) {
        case kDiagLogCommand:
            return detail::ParseLogPacket(body);
        case kDiagMultiSimCommand: {
            rt::ByteReader in(body);
            uint32_t subscription = 0;
            if (!in.Skip(4) || !in.U32(&subscription) || in.remaining() == 0 ||
                body[kMultiSimWrapperSize] != kDiagLogCommand)
                return frame;
            frame = detail::ParseLogPacket(in.Rest());
            frame.wrapped = true;
            frame.subscription = subscription;
            return frame;
        }
        case kDiagLogConfigCommand:
            frame.kind = DiagFrameKind::kLogConfig;
            return frame;
        case kDiagCustomMarker:
            if (body.size() >= 2 && body[1] == kDiagCustomMarker)
                frame.kind = DiagFrameKind::kMarker;
            return frame;
        default:
            return frame;
    }
}

}  // namespace dmux
