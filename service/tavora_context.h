// The daemon context: the PPS objects every other part writes to or reads.
#pragma once

#include <cstdint>

struct TavoraContext {
    int32_t eutra_fd = -1;    // diag/status_eutra
    int32_t utra_fd = -1;     // diag/status_utra
    int32_t geran_fd = -1;    // diag/status_geran
    int32_t cdma_fd = -1;     // diag/status_3gpp2
    int32_t data_fd = -1;     // diag/status_data
    int32_t config_fd = -1;   // diag/config?delta
    int32_t persist_fd = -1;  // modem0/status_persistent?delta
    int32_t omadm_fd = -1;    // omadm/radio/control?wait
};

// The one context of the process, for callbacks that get no argument.
extern TavoraContext* g_tavora_context;

// First 9 characters of the device's HardwareID; empty until read.
inline constexpr int kHardwareIdLength = 9;
extern char hardware_id[kHardwareIdLength + 1];

int SetupTavoraContext(TavoraContext* context);
void GetHardwareID();
void ClearEnsValue(int32_t config_fd);
void CloseTavoraContext(TavoraContext* context);
int DropToUser(const char* user);
