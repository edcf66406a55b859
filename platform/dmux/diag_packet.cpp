#include "platform/dmux/diag_packet.h"

#include "platform/common/byte_reader.h"

namespace dmux {

namespace {

using rt::ByteReader;
using rt::PutU16;
using rt::PutU32;
using rt::PutU64;

}  // namespace

uint64_t LogRecordTimestamp(std::span<const uint8_t> record) {
    ByteReader in(record);
    uint64_t timestamp = 0;
    if (in.Skip(4)) in.U64(&timestamp);
    return timestamp;
}

double LogTimestampMs(uint64_t timestamp) {
    return static_cast<double>(timestamp >> 16) * 1.25;
}

std::vector<uint8_t> BuildLogRecord(uint16_t code, uint64_t timestamp,
                                    std::span<const uint8_t> payload) {
    std::vector<uint8_t> record;
    PutU16(&record, static_cast<uint16_t>(kLogRecordHeaderSize + payload.size()));
    PutU16(&record, code);
    PutU64(&record, timestamp);
    record.insert(record.end(), payload.begin(), payload.end());
    return record;
}

std::vector<uint8_t> BuildLogPacketBody(std::span<const uint8_t> record,
                                        std::optional<uint32_t> subscription) {
    std::vector<uint8_t> body;
    if (subscription) {
        body = {kDiagMultiSimCommand, 0x01, 0x00, 0x00};
        PutU32(&body, *subscription);
    }
    body.push_back(kDiagLogCommand);
    body.push_back(0);  // more
    PutU16(&body, static_cast<uint16_t>(record.size()));
    body.insert(body.end(), record.begin(), record.end());
    return body;
}

std::vector<uint8_t> BuildLogConfigSetMask(uint32_t equipment_id, uint32_t last_item,
                                           std::span<const uint8_t> mask) {
    std::vector<uint8_t> body = {kDiagLogConfigCommand, 0, 0, 0};
    PutU32(&body, kLogConfigSetMask);
    PutU32(&body, equipment_id);
    PutU32(&body, last_item);
    body.insert(body.end(), mask.begin(), mask.end());
    return body;
}

std::optional<LogConfigSetMask> ParseLogConfigSetMask(std::span<const uint8_t> body) {
    ByteReader in(body);
    uint8_t command = 0;
    uint32_t operation = 0;
    LogConfigSetMask out;
    if (!in.U8(&command) || command != kDiagLogConfigCommand || !in.Skip(3) ||
        !in.U32(&operation) || operation != kLogConfigSetMask || !in.U32(&out.equipment_id) ||
        !in.U32(&out.last_item))
        return std::nullopt;
    auto mask = in.Rest();
    out.mask.assign(mask.begin(), mask.end());
    return out;
}

std::vector<uint8_t> BuildLogConfigResponse(const LogConfigResponse& response) {
    std::vector<uint8_t> body = {kDiagLogConfigCommand, 0, 0, 0};
    PutU32(&body, response.operation);
    PutU32(&body, response.status);
    PutU32(&body, response.equipment_id);
    PutU32(&body, response.last_item);
    return body;
}

std::optional<LogConfigResponse> ParseLogConfigResponse(std::span<const uint8_t> body) {
    ByteReader in(body);
    uint8_t command = 0;
    LogConfigResponse out;
    if (!in.U8(&command) || command != kDiagLogConfigCommand || !in.Skip(3) ||
        !in.U32(&out.operation) || !in.U32(&out.status))
        return std::nullopt;
    // The echoed equipment id and last item may be missing: zeros then.
    if (in.U32(&out.equipment_id)) in.U32(&out.last_item);
    return out;
}

}  // namespace dmux
