// The modem's system events: logged, the vendor client forgotten when the
// modem goes out of service, and modem_state published to the status
// object that the ENS request recorded.
#pragma once

#include <cstdint>

// Called by the QMI library on its own thread. event_info must be non-null
// (its contents are not read); user_data is not used.
void radio_tavora_reset_event_rx_hdlr(int event, void* event_info, void* user_data);

// The status object for modem_state (diag/status_data); -1 until the first
// ENS request made with an open client records it.
void SetModemStateFd(int32_t fd);
int32_t ModemStateFd();
