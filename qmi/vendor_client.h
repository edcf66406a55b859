// The daemon's client of the modem's vendor QMI service (service id 0xE3):
// the library handle and the client handle, opened on demand and closed at
// the end, and the lock that guards what the library's event thread shares
// with the poll-loop thread.
#pragma once

#include <mutex>

#include "platform/qmi_client/qmi_client.h"

// The vendor service's IDL object: library version 2, IDL version 1,
// service 0xE3, maximum message length 20, no message tables (raw use only).
extern const qmi_idl_service_object vendor_service_object;

// Starts the library once; 0 or 22.
int radio_tavora_qmi_init();
// Opens the vendor client; 0 (also when one is open), 22, or the result of
// qmi_client_init.
int radio_tavora_vendor_qmi_client_init();
// The two above, with their log lines.
void radioTavoraInitializeQmi();
// Releases the client: 0 when there was none or the release succeeded, else
// the negative result of qmi_client_release.
int radio_tavora_vendor_qmi_client_close();
// Ends the daemon's use of the library if it was started.
void radio_tavora_qmi_release();
// Close, then release; called on the way out of the process.
void radioTavoraCleanQmi();

// Guards vendor_qmi_client, modem_state_fd and the writes of modem_state.
// Recursive because radioTavoraCleanQmi runs from a signal handler on the
// main thread, which may have been interrupted inside a guarded section.
// Never held across a QMI exchange.
std::recursive_mutex& QmiStateMutex();

// The open client (0 when none), read under the lock.
qmi_client_type VendorQmiClient();
// Forgets the client without releasing it (the modem went out of service).
void DropVendorQmiClient();
// The library handle; negative while the library is not started.
int QmiLibraryHandle();

// Tests only: releases what is open and returns to the start state.
void ResetVendorQmiForTest();
