// The DM library: a client connection to the modem's DIAG port, log-packet
// delivery to one callback and log-mask requests. Implemented over DIAG's
// HDLC framing on the source DIAG_DEVICE names (see diag_source.h: modemsim's
// socket by default, a serial port, or a capture file).
//
// One connection at a time, with client id 1. Results are 0 on success or an
// errno value. Log records reach the callback on the library's own thread,
// one call per packet whose code is enabled by the masks sent so far.
#pragma once

#include <cstdint>

// (user data given to kora_dmc_log_init, log code, log record, its length):
// the record is the 12-byte log header (length, code, timestamp) then the
// payload, valid only during the call.
using kora_dmc_log_cb_t = void (*)(void* user_data, uint32_t log_code, const uint8_t* packet,
                                   uint32_t length);

inline constexpr uint32_t KORA_DMC_CLIENT_ID = 1;
// kora_dmc_set_log_config operation: replace one equipment id's log mask.
inline constexpr uint32_t KORA_DMC_OP_SET_LOG_MASK = 3;
// The request: equipment id u32, last item u32, then this many mask bytes.
inline constexpr uint32_t KORA_DMC_LOG_MASK_BYTES = 479;
inline constexpr uint32_t KORA_DMC_LOG_CONFIG_SIZE = 8 + KORA_DMC_LOG_MASK_BYTES;
// How long a mask request waits for the modem's answer.
inline constexpr int KORA_DMC_RESPONSE_TIMEOUT_MS = 2000;

// Opens the connection. client_kind must be 1. *connection_out gets the
// connection number (1); *client_id must hold 1 and is left as it is.
// Opening while open keeps the open connection and succeeds.
int kora_dmc_con_init(uint32_t client_kind, uint32_t* connection_out, uint32_t* client_id);

// Registers (or replaces) the packet callback. *registration_out gets 1.
int kora_dmc_log_init(uint32_t client_id, kora_dmc_log_cb_t callback, uint32_t* registration_out,
                      void* user_data);

// Sends one log-mask request (operation KORA_DMC_OP_SET_LOG_MASK, `length`
// KORA_DMC_LOG_CONFIG_SIZE, little-endian request as above). *status gets the
// modem's status word (0 = accepted). Delivery follows the new mask at once.
int kora_dmc_set_log_config(uint32_t client_id, uint32_t operation, const void* request,
                            uint32_t length, uint32_t* status);

// Closes the connection; no packet is delivered after it returns. Safe to
// call when nothing is open.
int kora_dmc_con_release(uint32_t* client_id);

// Counters of the open connection (zeros when none), for tests and tools.
struct kora_dmc_stats {
    uint64_t frames_good;
    uint64_t frames_bad;
    uint64_t log_packets;
    uint64_t delivered;           // to the callback, translated or as they came
    uint64_t translated;          // of those, rewritten into the daemon's layout
    uint64_t dropped;             // enabled, but of a version that cannot be delivered
    uint64_t other_subscription;  // multi-SIM packets of the subscription not kept
    uint64_t replay_passes;       // completed passes over a capture file
    int replay_percent;           // of the current pass; -1 when not replaying a file
};
int kora_dmc_get_stats(kora_dmc_stats* stats);
