// Builds DIAG byte streams for tests: log records in, HDLC frames out, so a
// test says exactly which bytes a modem or a capture file would hold.
// Frames are made here independently of the DIAG library (own CRC and
// escaping), so the library is checked against a second implementation.
//
//   rt::test::DiagCaptureBuilder capture;
//   capture.Log(0x4125, {3}, ts)          // one good frame
//          .LogWithBadCrc(0x4125, {5})    // a frame that must never count
//          .WriteTo(dir.file("rrc.qmdl"));
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rt::test {

// CRC-16/X-25, bit by bit.
uint16_t DiagCrc(const std::vector<uint8_t>& bytes);
// escaped(body || crc) 0x7E
std::vector<uint8_t> DiagHdlcFrame(const std::vector<uint8_t>& body);
// 12-byte log header (length, code, timestamp) then the payload.
std::vector<uint8_t> DiagLogRecord(uint16_t code, const std::vector<uint8_t>& payload,
                                   uint64_t timestamp = 0);
// 10 00 <len> <record>, inside a 98 01 00 00 <sub> wrapper when given.
std::vector<uint8_t> DiagLogPacketBody(const std::vector<uint8_t>& record,
                                       std::optional<uint32_t> subscription = std::nullopt);
// A DIAG timestamp for `ms` milliseconds (1.25 ms units in the upper 48 bits).
uint64_t DiagTimestampMs(uint64_t ms);

class DiagCaptureBuilder {
  public:
    DiagCaptureBuilder& Log(uint16_t code, const std::vector<uint8_t>& payload,
                            uint64_t timestamp = 0,
                            std::optional<uint32_t> subscription = std::nullopt);
    // The same frame with its CRC's first byte flipped.
    DiagCaptureBuilder& LogWithBadCrc(uint16_t code, const std::vector<uint8_t>& payload,
                                      uint64_t timestamp = 0);
    // Any frame body, framed with a good CRC.
    DiagCaptureBuilder& Frame(const std::vector<uint8_t>& body);

    const std::vector<uint8_t>& bytes() const { return bytes_; }
    size_t frames() const { return frames_; }
    bool WriteTo(const std::string& path) const;

  private:
    std::vector<uint8_t> bytes_;
    size_t frames_ = 0;
};

}  // namespace rt::test
