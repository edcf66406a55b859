#include "reports/wcdma/radio_stats.h"

#include <unistd.h>

#include <mutex>

#include "diaglog/log_snapshot_store.h"
#include "platform/pps/pps_encoder.h"
#include "service/pps_server.h"
#include "service/tavora_context.h"
#include "service/tavora_strings.h"

namespace {

constexpr uint16_t kRrcStateLogCode = 0x4125;
constexpr size_t kRrcStateOffset = 12;

struct RrcStateName {
    uint8_t key;
    const char* name;
};
constexpr RrcStateName kRrcStateNames[] = {
    {0, "RRC_Disconnected"}, {1, "RRC_Connecting"}, {2, "CELL_FACH"},  {3, "CELL_DCH"},
    {4, "CELL_PCH"},         {5, "URA_PCH"},        {0xFF, "Invalid"},
};

const char* RrcStateName(uint8_t key) {
    for (const auto& entry : kRrcStateNames)
        if (entry.key == key) return entry.name;
    return nullptr;
}

// Word 0 and the state byte of the snapshot, read under the store's lock.
struct RrcSnapshot {
    bool has_packet;
    uint8_t state;
};

RrcSnapshot ReadRrcSnapshot() {
    std::lock_guard<std::mutex> hold(g_log_snapshot_store.mutex());
    auto snapshot = g_log_snapshot_store.Snapshot(kRrcStateLogCode);
    return {(snapshot[0] | snapshot[1]) != 0, snapshot[kRrcStateOffset]};
}

}  // namespace

void GetRadioStats(PPSServer* server, void* arg, uint64_t client_id, const char* msg,
                   const char* id, const char* dat) {
    auto* context = static_cast<TavoraContext*>(arg);
    pps_encoder_t encoder;
    pps_encoder_initialize(&encoder, false);

    RrcSnapshot rrc = ReadRrcSnapshot();
    if (!rrc.has_packet) {
        pps_encoder_add_string(&encoder, "rrc_state", kNoDataAvailable);
        pps_encoder_add_string(&encoder, "rrc_conn_state", kNoDataAvailable);
    } else if (static_cast<uint8_t>(rrc.state - 2) > 252) {
        // 0, 1 and 0xFF: not connected, or no valid state.
        pps_encoder_add_string(&encoder, "rrc_state", RrcStateName(rrc.state));
        pps_encoder_add_string(&encoder, "rrc_conn_state", kNoDataAvailable);
    } else if (const char* connected = rrc.state <= 5 ? RrcStateName(rrc.state) : nullptr) {
        pps_encoder_add_string(&encoder, "rrc_state", "RRC_CONNECTED");
        pps_encoder_add_string(&encoder, "rrc_conn_state", connected);
    }
    // Codes 6 to 254 add neither state attribute: the object keeps the last ones.
    pps_encoder_add_string(&encoder, "rrc_release", kNoDataAvailable);
    pps_encoder_add_string(&encoder, "rrc_reject", kNoDataAvailable);

    const char* buffer = pps_encoder_buffer(&encoder);
    if (buffer != nullptr && context != nullptr) {
        ssize_t ignored = ::write(context->utra_fd, buffer, pps_encoder_length(&encoder));
        (void)ignored;
    }
    server->PPSReply(kControlServerPath, client_id, msg, id, dat, 0, false);
    pps_encoder_cleanup(&encoder);
}
