// The log mask: diaglogmask "1" opens the DM client connection, registers
// DM_recv_log_packet_cb and sends one log mask per RAT group (UMTS, WCDMA,
// LTE) enabling the 29 subscribed log codes; "0" sends the same masks
// cleared and releases the connection.
#pragma once

#include <cstdint>

inline constexpr int kDmLogMaskSize = 479;
inline constexpr int kDmLogConfigRequestSize = 8 + kDmLogMaskSize;  // 487

// 1 while the DM client connection is open.
extern int dm_client_connected;
// One bit per item of the current equipment id; zero after every send.
extern uint8_t dm_log_mask[kDmLogMaskSize];
// Set by DM_log_config_mask for the last code marked.
extern uint32_t dm_current_equip_id;
extern uint32_t dm_current_item;

// Applies the text of diaglogmask: exactly "1" or "0", anything else is ignored.
void SetTavoraLogMask(const char* value);
// Registers the callback (on = 1) and sends the three group masks; 0, or
// -1 when the callback registration fails.
int Tavora_Initialize_DM(int on);
// Marks one code in dm_log_mask; 1 when it was valid and changed.
int DM_log_config_mask(uint16_t code, int on);
// Sends dm_log_mask for one RAT group (0 WCDMA, 1 UMTS, 2 LTE) and clears
// it; the library's result.
int DM_Set_log_config(int group);

// Back to the start state. Tests only.
void ResetDmLogMaskState();
