#include "diaglog/dm_log_mask.h"

#include <cstring>

#include "diaglog/log_snapshot_store.h"
#include "platform/dmux/kora_dmc.h"
#include "qmi/vendor_client.h"
#include "service/tavora_log.h"

int dm_client_connected = 0;
uint8_t dm_log_mask[kDmLogMaskSize] = {};
uint32_t dm_current_equip_id = 0;
uint32_t dm_current_item = 0;

namespace {

constexpr uint32_t kDmClientId = 1;
constexpr uint32_t kDmSetLogConfigOperation = 3;

// Highest valid item per equipment id.
constexpr uint16_t kLastItemByEquipId[16] = {0, 0, 0, 0,     0x777, 0, 0, 0x4FF,
                                             0, 0, 0, 0x210, 0,     0, 0, 0};

constexpr uint16_t kUmtsCodes[] = {0x7130, 0x7131, 0x7136, 0x7135};
constexpr uint16_t kWcdmaCodes[] = {0x4005, 0x410C, 0x4110, 0x4111, 0x4116, 0x4125, 0x4127, 0x421C,
                                    0x4004, 0x4221, 0x4156, 0x413A, 0x4165, 0x4138, 0x4000};
constexpr uint16_t kLteCodes[] = {0xB0C2, 0xB179, 0xB19B, 0xB185, 0xB087,
                                  0xB081, 0xB097, 0xB091, 0xB0EE, 0xB17F};

struct RatGroup {
    int number;
    uint32_t last_item;
    const uint16_t* codes;
    size_t code_count;
    const char* success_line;
    const char* failure_line;
};

// In the order a switch-on sends them.
constexpr RatGroup kRatGroups[] = {
    {1, 0x74FF, kUmtsCodes, std::size(kUmtsCodes),
     "%30s : Tavora: UMTS Log Config sent successfully ", "%30s : Tavora: UMTS Log Config failed "},
    {0, 0x4777, kWcdmaCodes, std::size(kWcdmaCodes),
     "%30s : Tavora: WCDMA Log Config sent successfully ",
     "%30s : Tavora: WCDMA Log Config failed "},
    {2, 0xB210, kLteCodes, std::size(kLteCodes), "%30s : Tavora: LTE Log Config sent successfully ",
     "%30s : Tavora: LTE Log Config failed "},
};

const RatGroup* FindGroup(int number) {
    for (const auto& group : kRatGroups)
        if (group.number == number) return &group;
    return nullptr;
}

}  // namespace

int DM_log_config_mask(uint16_t code, int on) {
    static const char* const kName = "DM_log_config_mask";
    dm_current_equip_id = code >> 12;
    dm_current_item = code & 0xFFF;
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: Log code 0x%X  ", kName, code);
    if (dm_current_item > kLastItemByEquipId[dm_current_equip_id]) return 0;
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: LOG CODE IS VALID %x ", kName,
          code);
    uint8_t bit = static_cast<uint8_t>(1u << (dm_current_item & 7));
    if (on) {
        dm_log_mask[dm_current_item >> 3] |= bit;
    } else {
        dm_log_mask[dm_current_item >> 3] &= static_cast<uint8_t>(~bit);
    }
    return 1;
}

int DM_Set_log_config(int group) {
    static const char* const kName = "DM_Set_log_config";
    const RatGroup* rat = FindGroup(group);
    uint32_t last_item = rat != nullptr ? rat->last_item : 0;

    // The request, little-endian: equipment id, last item, the mask.
    uint8_t request[kDmLogConfigRequestSize];
    for (int i = 0; i < 4; ++i) {
        request[i] = static_cast<uint8_t>(dm_current_equip_id >> (8 * i));
        request[4 + i] = static_cast<uint8_t>(last_item >> (8 * i));
    }
    std::memcpy(request + 8, dm_log_mask, kDmLogMaskSize);

    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: size of dm_log_mask %d ", kName,
          kDmLogMaskSize);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: set mask equipid %d ", kName,
          static_cast<int>(dm_current_equip_id));
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: lastitem 0x%X ", kName, last_item);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity,
          "%30s : Tavora: before dm_con_set_log_config() sent to DM Consumer! ", kName);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: op_data size %d ", kName,
          kDmLogConfigRequestSize);
    uint32_t status = 0;
    int result = kora_dmc_set_log_config(kDmClientId, kDmSetLogConfigOperation, request,
                                         kDmLogConfigRequestSize, &status);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity,
          "%30s : Tavora: after dm_con_set_log_config() sent to DM Consumer! ", kName);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: set_log_status %d ", kName,
          static_cast<int>(status));
    std::memset(dm_log_mask, 0, kDmLogMaskSize);
    return result;
}

int Tavora_Initialize_DM(int on) {
    static const char* const kName = "Tavora_Initialize_DM";
    if (on == 1) {
        uint32_t registration = 0;
        if (kora_dmc_log_init(kDmClientId, DM_recv_log_packet_cb, &registration, nullptr) != 0) {
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : Tavora: log call-back registration failed", kName);
            return -1;
        }
    }
    for (const auto& group : kRatGroups) {
        for (size_t i = 0; i < group.code_count; ++i) DM_log_config_mask(group.codes[i], on);
        int result = DM_Set_log_config(group.number);
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              (result & 0xFF) != 0 ? group.failure_line : group.success_line, kName);
    }
    return 0;
}

void SetTavoraLogMask(const char* value) {
    static const char* const kName = "SetTavoraLogMask";
    if (value == nullptr) return;
    if (std::strcmp(value, "1") == 0 && dm_client_connected != 1) {
        uint32_t connection = 0;
        uint32_t client_id = kDmClientId;
        if (kora_dmc_con_init(1, &connection, &client_id) != 0) {
            dm_client_connected = 0;
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : ERROR: Tavora: DM Client Init failed!!", kName);
            return;
        }
        dm_client_connected = 1;
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: DM Client Init succeeded!!",
              kName);
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: DM Mask is ON ", kName);
        if (Tavora_Initialize_DM(1) == -1) {
            dm_client_connected = 0;
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : Tavora: Tavora_Initialize_DM  for SET MASK is failed!", kName);
        }
    } else if (std::strcmp(value, "0") == 0 && dm_client_connected != 0) {
        int status = radio_tavora_vendor_qmi_client_close();
        if (status != 0)
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : vendor QMI client is not closed properly: status = %d", kName, status);
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: DM Mask is OFF ", kName);
        Tavora_Initialize_DM(0);
        uint32_t client_id = kDmClientId;
        kora_dmc_con_release(&client_id);
        dm_client_connected = 0;
    }
}

void ResetDmLogMaskState() {
    dm_client_connected = 0;
    std::memset(dm_log_mask, 0, kDmLogMaskSize);
    dm_current_equip_id = 0;
    dm_current_item = 0;
}
