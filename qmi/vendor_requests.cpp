#include "qmi/vendor_requests.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/common/byte_layout.h"
#include "platform/qmi_client/qmi_client.h"
#include "qmi/reset_events.h"
#include "qmi/vendor_client.h"
#include "service/tavora_context.h"
#include "service/tavora_errors.h"
#include "service/tavora_log.h"

namespace {

// Where the send and response lines put the message id: not at all, as an
// int ("%d") or as a long ("%ld").
enum class IdInLog { kNone, kInt, kLong };

// One raw request of the vendor service: what it sends and accepts, and the
// lines it logs when the client is missing, the send fails or the modem
// reports an error (null when the result TLV is not examined).
struct VendorRequest {
    const char* name;
    unsigned request_length;  // 47 (no TLV) or 51 (one one-byte TLV)
    size_t response_capacity;
    IdInLog id_in_log;
    const char* not_initialized_format;
    const char* send_error_format;
    const char* response_error_format;
};

// The one TLV a request may carry after the raw request's header: type 1,
// length 1, then the byte.
constexpr rt::Field<uint8_t> kTlvType{kQmiRawRequestHeaderLen};
constexpr rt::Field<uint16_t> kTlvLength{kQmiRawRequestHeaderLen + 1};
constexpr rt::Field<uint8_t> kTlvValue{kQmiRawRequestHeaderLen + 3};
constexpr uint8_t kTlvTypeValue = 0x01;

constexpr unsigned kNoTlvLength = kQmiRawRequestHeaderLen;
constexpr unsigned kOneTlvLength = kTlvValue.offset + 1;

constexpr VendorRequest kSetEnsRequest{
    "radio_tavora_vendor_set_ens",
    kOneTlvLength,
    7,
    IdInLog::kInt,
    "%30s : ERROR: Tavora: QMI port not initialized",
    "%30s : ERROR: Tavora: Error in sending %d QMI req: Error = %d",
    "%30s : ERROR: Tavora: %d QMI response has a Error = %d"};
constexpr VendorRequest kSetStateRequest{
    "radio_tavora_vendor_set_evdo_1x_ims_state",
    kOneTlvLength,
    kStateResponseSize,
    IdInLog::kLong,
    "%30s : ERROR: Tavora: QMI port not initialized",
    "%30s : ERROR: Tavora: Error in sending %ld STATE QMI req: Error = %d",
    "%30s : ERROR: Tavora: %ld STATE QMI response has a Error = %d"};
constexpr VendorRequest kGetStateRequest{
    "radio_tavora_vendor_get_evdo_1x_ims_state",
    kNoTlvLength,
    kStateResponseSize,
    IdInLog::kLong,
    "%30s : ERROR: Tavora: QMI port not initialized",
    "%30s : ERROR: Tavora: Error in sending %ld STATE QMI req: Error = %d",
    "%30s : ERROR: Tavora: %ld response has a Error = %d"};
constexpr VendorRequest kRatMeasRequest{
    "radio_tavora_vendor_rat_meas_info",
    kOneTlvLength,
    kRatMeasInfoResponseSize,
    IdInLog::kNone,
    "%30s : ERROR: QMI port not initialized",
    "%30s : ERROR: Error in sending RAT_MEAS_QMI req: Error = %d",
    nullptr};
constexpr VendorRequest kMiscInfoRequest{
    "radio_tavora_vendor_misc_info",
    kNoTlvLength,
    kMiscInfoResponseSize,
    IdInLog::kNone,
    "%30s : ERROR: QMI port not initialized",
    "%30s : ERROR: Error in sending MISC_INOF_QMI req: Error = %d",
    nullptr};

// The result TLV at the start of every response.
constexpr rt::Field<uint16_t> kResultField{3};
constexpr rt::Field<uint16_t> kErrorField{5};

// A line whose arguments are the operation's name, the message id when the
// request's lines carry it, and one number.
void LogWithId(const VendorRequest& request, const char* format, long msg_id, int number) {
    switch (request.id_in_log) {
        case IdInLog::kNone:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, format, request.name, number);
            break;
        case IdInLog::kInt:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, format, request.name,
                  static_cast<int>(msg_id), number);
            break;
        case IdInLog::kLong:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, format, request.name, msg_id, number);
            break;
    }
}

// The open client, or 0 after logging that there is none.
qmi_client_type ClientOrLog(const VendorRequest& request) {
    qmi_client_type client = VendorQmiClient();
    if (client == 0)
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, request.not_initialized_format, request.name);
    return client;
}

// One synchronous exchange on `client`: the 47 bytes of room, the request's
// one-byte TLV when it has one, and the result checked when the request
// examines it. 0, or 22 after logging the failure.
int Exchange(const VendorRequest& request, qmi_client_type client, long msg_id, uint8_t tlv_value,
             uint8_t* response) {
    uint8_t bytes[kOneTlvLength] = {};
    if (request.request_length == kOneTlvLength) {
        rt::FieldWriter tlv(bytes);
        tlv.Write(kTlvType, kTlvTypeValue);
        tlv.Write(kTlvLength, 1);
        tlv.Write(kTlvValue, tlv_value);
    }
    int rc = qmi_client_send_raw_msg_sync(
        client, static_cast<unsigned>(msg_id), bytes, request.request_length, response,
        static_cast<unsigned>(request.response_capacity), nullptr, kVendorQmiTimeoutMs);
    if (rc != 0) {
        LogWithId(request, request.send_error_format, msg_id, rc);
        return kTavoraErrInvalid;
    }
    if (request.response_error_format != nullptr) {
        rt::FieldReader result({response, request.response_capacity});
        if (result.Get(kResultField) != 0) {
            LogWithId(request, request.response_error_format, msg_id, result.Get(kErrorField));
            return kTavoraErrInvalid;
        }
    }
    return 0;
}

// The client check, then the exchange.
int Send(const VendorRequest& request, long msg_id, uint8_t tlv_value, uint8_t* response) {
    qmi_client_type client = ClientOrLog(request);
    if (client == 0) return kTavoraErrInvalid;
    return Exchange(request, client, msg_id, tlv_value, response);
}

// --- misc-information walk -------------------------------------------------

constexpr const char* kMiscName = kMiscInfoRequest.name;
constexpr int kWalkStart = 7;
constexpr int kWalkLastByte = 63;  // values end before it; positions up to it
constexpr int kMaxRecognisedTlvs = 5;

struct MiscTextTlv {
    uint8_t type;
    size_t field_offset;
    int limit;
    const char* over_limit_format;
    const char* past_message_format;
};

const MiscTextTlv kMiscTextTlvs[] = {
    {0x10, offsetof(MiscInfo, pesn), 16,
     "%30s : WARN: qmi_misc_ESN_VAL exceeds the max recv-buf length: length = %d, truncated to "
     "length = %d",
     "%30s : WARN: qmi_misc_ESN_VAL exceeds its own msg length: truncated to length = %d"},
    {0x13, offsetof(MiscInfo, mob_fw), 8,
     "%30s : WARN: qmi_misc_MOB_FW_VAL exceeds the max recv-buf length: length = %d, truncated to "
     "length = %d",
     "%30s : WARN: qmi_misc_MOB_FW_VAL exceeds its own msg length: truncated to length = %d"},
    {0x14, offsetof(MiscInfo, model), 32,
     "%30s : WARN: qmi_misc_MODEL_VAL exceeds the max recv-buf length: length = %d truncated to "
     "length = %d",
     "%30s : WARN: qmi_misc_MODEL_VAL exceeds its own msg length: truncated to length = %d"},
};

struct MiscByteTlv {
    uint8_t type;
    size_t field_offset;
};

const MiscByteTlv kMiscByteTlvs[] = {
    {0x11, offsetof(MiscInfo, sci)},
    {0x12, offsetof(MiscInfo, mob_p_rev)},
};

const MiscTextTlv* FindTextTlv(uint8_t type) {
    for (const MiscTextTlv& tlv : kMiscTextTlvs)
        if (tlv.type == type) return &tlv;
    return nullptr;
}

const MiscByteTlv* FindByteTlv(uint8_t type) {
    for (const MiscByteTlv& tlv : kMiscByteTlvs)
        if (tlv.type == type) return &tlv;
    return nullptr;
}

}  // namespace

void DecodeMiscInfoResponse(const uint8_t (&response)[kMiscInfoResponseSize], MiscInfo* record) {
    const rt::FieldReader bytes(response);
    auto* fields = reinterpret_cast<uint8_t*>(record);
    int position = kWalkStart;
    int recognised = 0;
    while (position <= kWalkLastByte && recognised < kMaxRecognisedTlvs) {
        // A header (type, 16-bit length) that would not fit ends the walk.
        if (position + 2 >= static_cast<int>(kMiscInfoResponseSize)) break;
        const size_t at = static_cast<size_t>(position);
        uint8_t type = bytes.Get(rt::Field<uint8_t>{at});
        int length = bytes.Get(rt::Field<uint8_t>{at + 1});  // only the low byte counts
        int value_start = position + 3;
        if (const MiscTextTlv* text = FindTextTlv(type)) {
            if (length > text->limit) {
                slogf(kTavoraLogOpcode, kTavoraLogSeverity, text->over_limit_format, kMiscName,
                      length, text->limit);
                length = text->limit;
            }
            if (value_start + length > kWalkLastByte) {
                length = std::max(kWalkLastByte - value_start, 0);
                slogf(kTavoraLogOpcode, kTavoraLogSeverity, text->past_message_format, kMiscName,
                      length);
            }
            // At most `limit` bytes (the field's size), and never past the response.
            rt::ByteReader value(response);
            std::span<const uint8_t> copied;
            if (value.Skip(static_cast<size_t>(value_start)))
                copied = value.Take(static_cast<size_t>(length));
            std::copy(copied.begin(), copied.end(), fields + text->field_offset);
            position = value_start + length;
            ++recognised;
        } else if (const MiscByteTlv* byte = FindByteTlv(type)) {
            if (value_start > kWalkLastByte) break;
            fields[byte->field_offset] =
                bytes.Get(rt::Field<uint8_t>{static_cast<size_t>(value_start)});
            position = value_start + 1;
            ++recognised;
        } else {
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : WARN: Radio_Tavora: in QMI misc_info_resp_msg, unknown TLV detected and "
                  "ignored: tlvType = 0x%02x, tlvLen = %d",
                  kMiscName, type, length);
            position = value_start + length;
        }
    }
}

void SetENSValue(const char* value) {
    int number = std::atoi(value);
    uint8_t ens;
    if (number == 1) {
        ens = 0;
    } else if (number == 0) {
        ens = 1;
    } else {
        return;
    }
    radioTavoraInitializeQmi();
    int32_t data_fd = g_tavora_context != nullptr ? g_tavora_context->data_fd : -1;
    radio_tavora_vendor_set_ens(ens, data_fd);
}

int radio_tavora_vendor_set_ens(uint8_t ens, int32_t fd) {
    qmi_client_type client = ClientOrLog(kSetEnsRequest);
    if (client == 0) return kTavoraErrInvalid;
    SetModemStateFd(fd);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ENS value sent as part of QMI is %x",
          kSetEnsRequest.name, ens);
    uint8_t response[kSetEnsRequest.response_capacity] = {};
    return Exchange(kSetEnsRequest, client, kQmiMsgSetEns, ens, response);
}

int radio_tavora_vendor_set_evdo_1x_ims_state(uint8_t* response, long msg_id, uint8_t state) {
    std::memset(response, 0, 4);
    return Send(kSetStateRequest, msg_id, state, response);
}

int radio_tavora_vendor_get_evdo_1x_ims_state(uint8_t* response, long msg_id) {
    return Send(kGetStateRequest, msg_id, 0, response);
}

int radio_tavora_vendor_rat_meas_info(RatMeasInfoResponse* response, uint8_t rat_type) {
    std::memset(response->bytes, 0, sizeof response->bytes);
    return Send(kRatMeasRequest, kQmiMsgRatMeasInfo, rat_type, response->bytes);
}

int RequestRatMeasurements(const char* caller, uint8_t rat_type, RatMeasInfoResponse* response) {
    int status = radio_tavora_vendor_rat_meas_info(response, rat_type);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Error in sending & processing RAT_MEAS_QMI req: Error = %d", caller, status);
    }
    return status;
}

int radio_tavora_vendor_misc_info(MiscInfo* record) {
    if (record == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Error in requesting for misc_info by application: NULL buf-pointer!",
              kMiscInfoRequest.name);
        return kTavoraErrInvalid;
    }
    std::memset(record, 0, sizeof *record);
    uint8_t response[kMiscInfoResponseSize] = {};
    int rc = Send(kMiscInfoRequest, kQmiMsgMiscInfo, 0, response);
    if (rc == 0) DecodeMiscInfoResponse(response, record);
    return rc;
}
