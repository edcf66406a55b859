#include "platform/dmux/kora_dmc.h"

#include <atomic>
#include <cerrno>
#include <span>

#include "platform/common/byte_reader.h"
#include "platform/dmux/diag_connection.h"

namespace {

// The one connection. Released through an exchange, not a lock, because
// the daemon releases it from a signal handler.
std::atomic<dmux::DiagConnection*> g_connection{nullptr};

}  // namespace

int kora_dmc_con_init(uint32_t client_kind, uint32_t* connection_out, uint32_t* client_id) {
    if (client_kind != 1 || client_id == nullptr || *client_id != KORA_DMC_CLIENT_ID) return EINVAL;
    if (g_connection.load() == nullptr) {
        auto source = dmux::ParseDiagSource(dmux::DiagDeviceFromEnvironment());
        if (!source) return EINVAL;
        int error = 0;
        auto conn = dmux::DiagConnection::Open(*source, &error);
        if (!conn) return error != 0 ? error : EIO;
        dmux::DiagConnection* expected = nullptr;
        if (!g_connection.compare_exchange_strong(expected, conn.get())) return EBUSY;
        conn.release();
    }
    if (connection_out != nullptr) *connection_out = 1;
    return 0;
}

int kora_dmc_log_init(uint32_t client_id, kora_dmc_log_cb_t callback, uint32_t* registration_out,
                      void* user_data) {
    if (client_id != KORA_DMC_CLIENT_ID || callback == nullptr) return EINVAL;
    dmux::DiagConnection* conn = g_connection.load();
    if (conn == nullptr) return ENOTCONN;
    conn->SetCallback(callback, user_data);
    if (registration_out != nullptr) *registration_out = 1;
    return 0;
}

int kora_dmc_set_log_config(uint32_t client_id, uint32_t operation, const void* request,
                            uint32_t length, uint32_t* status) {
    if (client_id != KORA_DMC_CLIENT_ID || operation != KORA_DMC_OP_SET_LOG_MASK ||
        request == nullptr || length != KORA_DMC_LOG_CONFIG_SIZE || status == nullptr)
        return EINVAL;
    dmux::DiagConnection* conn = g_connection.load();
    if (conn == nullptr) return ENOTCONN;
    rt::ByteReader in(std::span(static_cast<const uint8_t*>(request), length));
    uint32_t equipment_id = 0, last_item = 0;
    in.U32(&equipment_id);  // the length was checked above
    in.U32(&last_item);
    return conn->SetLogMask(equipment_id, last_item, in.Rest(), status);
}

int kora_dmc_con_release(uint32_t* client_id) {
    if (client_id == nullptr || *client_id != KORA_DMC_CLIENT_ID) return EINVAL;
    dmux::DiagConnection* conn = g_connection.exchange(nullptr);
    if (conn == nullptr) return 0;
    if (conn->Stop()) delete conn;  // else its thread still runs: leave it allocated
    return 0;
}

int kora_dmc_get_stats(kora_dmc_stats* stats) {
    if (stats == nullptr) return EINVAL;
    dmux::DiagConnection* conn = g_connection.load();
    *stats = conn != nullptr ? conn->Stats() : kora_dmc_stats{};
    return 0;
}
