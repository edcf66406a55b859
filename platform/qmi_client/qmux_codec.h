// QMUX framing, the CTL and service message headers, and TLVs.
//
//   frame:  01 | len u16 (bytes after the 01) | qmux flags | service | client id | SDU
//   CTL SDU:      flags | txn u8  | msg id u16 | tlv len u16 | TLVs
//   service SDU:  flags | txn u16 | msg id u16 | tlv len u16 | TLVs
//   TLV:          type u8 | len u16 | value
//
// All multi-byte fields little-endian. Decoders never read past their input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace qmux {

inline constexpr uint8_t kInterfaceType = 0x01;
inline constexpr size_t kQmuxHeaderLen = 6;  // 01, length, flags, service, client id
inline constexpr size_t kCtlSduHeaderLen = 6;
inline constexpr size_t kServiceSduHeaderLen = 7;
inline constexpr size_t kMaxFrameLen = 1 + 0xFFFF;

// QMUX-level control flags: who sent the frame.
inline constexpr uint8_t kFromControlPoint = 0x00;
inline constexpr uint8_t kFromService = 0x80;

inline constexpr uint8_t kCtlService = 0x00;
// CTL message flags.
inline constexpr uint8_t kCtlRequest = 0x00;
inline constexpr uint8_t kCtlResponse = 0x01;
inline constexpr uint8_t kCtlIndication = 0x02;
// Service message flags.
inline constexpr uint8_t kServiceRequest = 0x00;
inline constexpr uint8_t kServiceResponse = 0x02;
inline constexpr uint8_t kServiceIndication = 0x04;

// CTL messages.
inline constexpr uint16_t kCtlGetVersionInfo = 0x0021;
inline constexpr uint16_t kCtlGetClientId = 0x0022;
inline constexpr uint16_t kCtlReleaseClientId = 0x0023;
inline constexpr uint16_t kCtlSync = 0x0027;
// libqmi's proxy: open the device named by TLV 0x01 (its path, no NUL).
inline constexpr uint16_t kCtlInternalProxyOpen = 0xFF00;

// TLVs shared by every message: the result, and CTL's first argument.
inline constexpr uint8_t kResultTlv = 0x02;
inline constexpr uint8_t kCtlArgumentTlv = 0x01;

struct Message {
    uint8_t qmux_flags = kFromControlPoint;
    uint8_t service = 0;
    uint8_t client_id = 0;
    uint8_t flags = 0;
    uint16_t transaction = 0;  // only the low 8 bits travel on CTL
    uint16_t message_id = 0;
    std::vector<uint8_t> tlvs;  // the TLV area as bytes

    bool is_ctl() const { return service == kCtlService; }
};

enum class DecodeStatus {
    kOk,
    kTooShort,           // fewer bytes than a QMUX header
    kBadInterfaceType,   // first byte is not 0x01
    kLengthMismatch,     // QMUX length disagrees with the frame's size
    kSduTooShort,        // no room for the message header
    kTlvLengthMismatch,  // message header's TLV length disagrees with the bytes
};

const char* DecodeStatusName(DecodeStatus status);

// The whole frame, 01 included. The TLV area may be at most what a QMUX
// length can carry; an over-long one yields an empty vector.
std::vector<uint8_t> Encode(const Message& message);

DecodeStatus Decode(std::span<const uint8_t> frame, Message* message);

// Splits a byte stream into frames. Bytes that cannot start a frame (not
// 0x01, or a length too small for any header) are dropped one at a time.
class FrameAssembler {
  public:
    void Append(std::span<const uint8_t> bytes);
    // The next whole frame, or false when more bytes are needed.
    bool Next(std::vector<uint8_t>* frame);
    size_t dropped() const { return dropped_; }
    size_t buffered() const { return buffer_.size(); }
    void Clear() { buffer_.clear(); }

  private:
    std::vector<uint8_t> buffer_;
    size_t dropped_ = 0;
};

struct Tlv {
    uint8_t type;
    std::span<const uint8_t> value;
};

void AppendTlv(std::vector<uint8_t>* area, uint8_t type, std::span<const uint8_t> value);
// False when a TLV's length runs past the area (what parsed is kept).
bool ParseTlvs(std::span<const uint8_t> area, std::vector<Tlv>* tlvs);
std::optional<Tlv> FindTlv(std::span<const uint8_t> area, uint8_t type);

struct Result {
    uint16_t result = 0;  // 0 success, 1 failure
    uint16_t error = 0;
};
// The result TLV (type 0x02, 4 bytes), when present and whole.
std::optional<Result> ReadResult(std::span<const uint8_t> area);
std::vector<uint8_t> ResultTlvValue(Result result);

}  // namespace qmux
