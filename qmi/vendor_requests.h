// The raw requests to the vendor QMI service, each one synchronous exchange
// (2000 ms time-out) on the client of vendor_client.h, and SetENSValue, the
// action behind the ens_value setting.
//
// Request buffer: 47 zero bytes, then TLVs (type u8, length u16 LE, value).
// Response buffer: the result TLV first (type at 0, length at 1, result u16
// LE at 3, 0 = success; error code u16 LE at 5), then the other TLVs.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr unsigned kVendorQmiTimeoutMs = 2000;

// Message ids of the vendor service.
inline constexpr long kQmiMsgSetEns = 0x1F;
inline constexpr long kQmiMsgSetImsTestMode = 0x1A;
inline constexpr long kQmiMsgSetEvdoState = 0x18;
inline constexpr long kQmiMsgSet1xState = 0x16;
inline constexpr long kQmiMsgGet1xState = 0x15;
inline constexpr long kQmiMsgRatMeasInfo = 0x09;
inline constexpr long kQmiMsgMiscInfo = 0x14;

// Response of the state requests: at least this many bytes.
inline constexpr size_t kStateResponseSize = 11;

// The RAT measurement response, owned by the caller.
inline constexpr size_t kRatMeasInfoResponseSize = 1331;
struct RatMeasInfoResponse {
    uint8_t bytes[kRatMeasInfoResponseSize];
};
// Bytes that say whether the payload can be read: nonzero when measurements
// are present, the payload's RAT type, nonzero when the payload holds data.
inline constexpr size_t kRatMeasPresentOffset = 10;
inline constexpr size_t kRatMeasRatTypeOffset = 11;
inline constexpr size_t kRatMeasValidOffset = 12;
// RAT types: UMTS, and LTE with GERAN neighbours.
inline constexpr uint8_t kRatTypeUmts = 3;
inline constexpr uint8_t kRatTypeLteGeran = 4;

// The decoded misc-information record (65 bytes, zero before decoding).
// A text that fills its field has no terminator inside it.
struct MiscInfo {
    uint8_t leading[7];
    char pesn[16];
    uint8_t sci;
    uint8_t mob_p_rev;
    char mob_fw[8];
    char model[32];
};
static_assert(sizeof(MiscInfo) == 65, "MiscInfo is the 65-byte record");

inline constexpr size_t kMiscInfoResponseSize = 64;

// ens_value: 1 sends ENS byte 0, 0 sends 1, anything else sends nothing.
void SetENSValue(const char* value);

int radio_tavora_vendor_set_ens(uint8_t ens, int32_t fd);
int radio_tavora_vendor_set_evdo_1x_ims_state(uint8_t* response, long msg_id, uint8_t state);
int radio_tavora_vendor_get_evdo_1x_ims_state(uint8_t* response, long msg_id);
int radio_tavora_vendor_rat_meas_info(RatMeasInfoResponse* response, uint8_t rat_type);
// The RAT measurement request as the reports make it: a failure is logged in
// the caller's name and leaves the response all zero. Returns the result.
int RequestRatMeasurements(const char* caller, uint8_t rat_type, RatMeasInfoResponse* response);
int radio_tavora_vendor_misc_info(MiscInfo* record);

// The TLV walk of a misc-information response (the 64 bytes as received),
// into a zeroed record; logs its warning lines.
void DecodeMiscInfoResponse(const uint8_t (&response)[kMiscInfoResponseSize], MiscInfo* record);
