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

DiagFrame ParseDiagFrame(std::span<const uint8_t> body);

// Fields of a log record header.
uint16_t LogRecordCode(std::span<const uint8_t> record);
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

}  // namespace dmux
