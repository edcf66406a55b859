#include "testsupport/diag_capture_builder.h"

#include <fstream>

namespace rt::test {

namespace {

void PutLe(std::vector<uint8_t>* out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

std::vector<uint8_t> Escape(const std::vector<uint8_t>& raw) {
    std::vector<uint8_t> out;
    for (uint8_t b : raw) {
        if (b == 0x7E || b == 0x7D) {
            out.push_back(0x7D);
            out.push_back(b ^ 0x20);
        } else {
            out.push_back(b);
        }
    }
    out.push_back(0x7E);
    return out;
}

}  // namespace

uint16_t DiagCrc(const std::vector<uint8_t>& bytes) {
    uint16_t crc = 0xFFFF;
    for (uint8_t b : bytes) {
        crc ^= b;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
    }
    return crc ^ 0xFFFF;
}

std::vector<uint8_t> DiagHdlcFrame(const std::vector<uint8_t>& body) {
    std::vector<uint8_t> raw = body;
    PutLe(&raw, DiagCrc(body), 2);
    return Escape(raw);
}

std::vector<uint8_t> DiagLogRecord(uint16_t code, const std::vector<uint8_t>& payload,
                                   uint64_t timestamp) {
    std::vector<uint8_t> record;
    PutLe(&record, 12 + payload.size(), 2);
    PutLe(&record, code, 2);
    PutLe(&record, timestamp, 8);
    record.insert(record.end(), payload.begin(), payload.end());
    return record;
}

std::vector<uint8_t> DiagLogPacketBody(const std::vector<uint8_t>& record,
                                       std::optional<uint32_t> subscription) {
    std::vector<uint8_t> body;
    if (subscription) {
        body = {0x98, 0x01, 0x00, 0x00};
        PutLe(&body, *subscription, 4);
    }
    body.push_back(0x10);
    body.push_back(0x00);
    PutLe(&body, record.size(), 2);
    body.insert(body.end(), record.begin(), record.end());
    return body;
}

uint64_t DiagTimestampMs(uint64_t ms) {
    return (ms * 4 / 5) << 16;
}

DiagCaptureBuilder& DiagCaptureBuilder::Log(uint16_t code, const std::vector<uint8_t>& payload,
                                            uint64_t timestamp,
                                            std::optional<uint32_t> subscription) {
    return Frame(DiagLogPacketBody(DiagLogRecord(code, payload, timestamp), subscription));
}

DiagCaptureBuilder& DiagCaptureBuilder::LogWithBadCrc(uint16_t code,
                                                      const std::vector<uint8_t>& payload,
                                                      uint64_t timestamp) {
    std::vector<uint8_t> raw = DiagLogPacketBody(DiagLogRecord(code, payload, timestamp));
    uint16_t crc = DiagCrc(raw) ^ 0x00FF;
    PutLe(&raw, crc, 2);
    auto framed = Escape(raw);
    bytes_.insert(bytes_.end(), framed.begin(), framed.end());
    ++frames_;
    return *this;
}

DiagCaptureBuilder& DiagCaptureBuilder::Frame(const std::vector<uint8_t>& body) {
    auto framed = DiagHdlcFrame(body);
    bytes_.insert(bytes_.end(), framed.begin(), framed.end());
    ++frames_;
    return *this;
}

bool DiagCaptureBuilder::WriteTo(const std::string& path) const {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes_.data()),
              static_cast<std::streamsize>(bytes_.size()));
    return static_cast<bool>(out);
}

}  // namespace rt::test
