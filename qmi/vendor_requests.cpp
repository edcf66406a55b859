#include "qmi/vendor_requests.h"

#include <cstdlib>
#include <cstring>

#include "platform/qmi_client/qmi_client.h"
#include "qmi/reset_events.h"
#include "qmi/vendor_client.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"

namespace {

constexpr int kEinval = 22;

// A raw request: the 47 bytes of room, then at most one one-byte TLV.
struct RawRequest {
    uint8_t bytes[kQmiRawRequestHeaderLen + 4] = {};
    unsigned length = kQmiRawRequestHeaderLen;
};

RawRequest NoTlvRequest() {
    return RawRequest{};
}

RawRequest OneByteTlvRequest(uint8_t value) {
    RawRequest request;
    uint8_t* tlv = request.bytes + kQmiRawRequestHeaderLen;
    tlv[0] = 0x01;  // type
    tlv[1] = 0x01;  // length, little-endian
    tlv[2] = 0x00;
    tlv[3] = value;
    request.length = kQmiRawRequestHeaderLen + 4;
    return request;
}

int Send(qmi_client_type client, long msg_id, const RawRequest& request, void* response,
         unsigned capacity) {
    return qmi_client_send_raw_msg_sync(client, static_cast<unsigned>(msg_id), request.bytes,
                                        request.length, response, capacity, nullptr,
                                        kVendorQmiTimeoutMs);
}

uint16_t U16At(const uint8_t* bytes, size_t offset) {
    return static_cast<uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}
uint16_t ResultField(const uint8_t* response) {
    return U16At(response, 3);
}
uint16_t ErrorField(const uint8_t* response) {
    return U16At(response, 5);
}

// --- misc-information walk -------------------------------------------------

constexpr const char* kMiscName = "radio_tavora_vendor_misc_info";
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
    auto* fields = reinterpret_cast<uint8_t*>(record);
    int position = kWalkStart;
    int recognised = 0;
    while (position <= kWalkLastByte && recognised < kMaxRecognisedTlvs) {
        // A header (type, 16-bit length) that would not fit ends the walk.
        if (position + 2 >= static_cast<int>(kMiscInfoResponseSize)) break;
        uint8_t type = response[position];
        int length = response[position + 1];  // only the low byte counts
        int value_start = position + 3;
        if (const MiscTextTlv* text = FindTextTlv(type)) {
            if (length > text->limit) {
                slogf(kTavoraLogOpcode, kTavoraLogSeverity, text->over_limit_format, kMiscName,
                      length, text->limit);
                length = text->limit;
            }
            if (value_start + length > kWalkLastByte) {
                length = kWalkLastByte - value_start;
                if (length < 0) length = 0;
                slogf(kTavoraLogOpcode, kTavoraLogSeverity, text->past_message_format, kMiscName,
                      length);
            }
            std::memcpy(fields + text->field_offset, response + value_start,
                        static_cast<size_t>(length));
            position = value_start + length;
            ++recognised;
        } else if (const MiscByteTlv* byte = FindByteTlv(type)) {
            if (value_start > kWalkLastByte) break;
            fields[byte->field_offset] = response[value_start];
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
    static const char* const kName = "radio_tavora_vendor_set_ens";
    qmi_client_type client = VendorQmiClient();
    if (client == 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: QMI port not initialized", kName);
        return kEinval;
    }
    SetModemStateFd(fd);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ENS value sent as part of QMI is %x", kName,
          ens);
    uint8_t response[7] = {};
    int rc = Send(client, kQmiMsgSetEns, OneByteTlvRequest(ens), response, sizeof response);
    if (rc != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: Error in sending %d QMI req: Error = %d", kName,
              static_cast<int>(kQmiMsgSetEns), rc);
        return kEinval;
    }
    if (ResultField(response) != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: %d QMI response has a Error = %d", kName,
              static_cast<int>(kQmiMsgSetEns), ErrorField(response));
        return kEinval;
    }
    return 0;
}

namespace {

// The exchange both state requests make: the client check, the request,
// and the send and response failures logged in the caller's words.
int StateExchange(const char* name, long msg_id, const RawRequest& request, uint8_t* response,
                  const char* response_error_format) {
    qmi_client_type client = VendorQmiClient();
    if (client == 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: QMI port not initialized", name);
        return kEinval;
    }
    int rc = Send(client, msg_id, request, response, kStateResponseSize);
    if (rc != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: Error in sending %ld STATE QMI req: Error = %d", name, msg_id,
              rc);
        return kEinval;
    }
    if (ResultField(response) != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, response_error_format, name, msg_id,
              ErrorField(response));
        return kEinval;
    }
    return 0;
}

}  // namespace

int radio_tavora_vendor_set_evdo_1x_ims_state(uint8_t* response, long msg_id, uint8_t state) {
    std::memset(response, 0, 4);
    return StateExchange("radio_tavora_vendor_set_evdo_1x_ims_state", msg_id,
                         OneByteTlvRequest(state), response,
                         "%30s : ERROR: Tavora: %ld STATE QMI response has a Error = %d");
}

int radio_tavora_vendor_get_evdo_1x_ims_state(uint8_t* response, long msg_id) {
    return StateExchange("radio_tavora_vendor_get_evdo_1x_ims_state", msg_id, NoTlvRequest(),
                         response, "%30s : ERROR: Tavora: %ld response has a Error = %d");
}

int radio_tavora_vendor_rat_meas_info(RatMeasInfoResponse* response, uint8_t rat_type) {
    static const char* const kName = "radio_tavora_vendor_rat_meas_info";
    std::memset(response->bytes, 0, sizeof response->bytes);
    qmi_client_type client = VendorQmiClient();
    if (client == 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ERROR: QMI port not initialized",
              kName);
        return kEinval;
    }
    int rc = Send(client, kQmiMsgRatMeasInfo, OneByteTlvRequest(rat_type), response->bytes,
                  sizeof response->bytes);
    if (rc != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Error in sending RAT_MEAS_QMI req: Error = %d", kName, rc);
        return kEinval;
    }
    return 0;
}

int radio_tavora_vendor_misc_info(MiscInfo* record) {
    if (record == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Error in requesting for misc_info by application: NULL buf-pointer!",
              kMiscName);
        return kEinval;
    }
    std::memset(record, 0, sizeof *record);
    uint8_t response[kMiscInfoResponseSize] = {};
    qmi_client_type client = VendorQmiClient();
    if (client == 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ERROR: QMI port not initialized",
              kMiscName);
        return kEinval;
    }
    int rc = Send(client, kQmiMsgMiscInfo, NoTlvRequest(), response, sizeof response);
    if (rc != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Error in sending MISC_INOF_QMI req: Error = %d", kMiscName, rc);
        return kEinval;
    }
    DecodeMiscInfoResponse(response, record);
    return 0;
}
