// QMI client library: the calls the daemon makes to reach a QMI service of
// the modem, over real QMUX framing.
//
//   int handle = qmi_init(on_system_event, nullptr);          // starts the library's thread
//   qmi_service_info info[1]; unsigned entries = 1, services = 1;
//   qmi_client_get_service_list(&object, info, &entries, &services);
//   qmi_client_type client = 0;
//   qmi_client_init(info, &object, nullptr, nullptr, nullptr, &client);
//   qmi_client_send_raw_msg_sync(client, 0x14, req, 47, resp, 64, nullptr, 2000);
//   qmi_client_release(client);
//   qmi_release(handle);
//
// Transport: the endpoint named by $QMI_DEVICE, either "unix:/path" (a
// stream socket to a modem simulator), the path of a QMI character device
// (cdc-wdm style: one read or write is one whole QMUX frame), or
// "qmi-proxy:/dev/cdc-wdm0": the device shared through libqmi's qmi-proxy,
// as ModemManager holds it (the proxy opens the device and keeps each
// client's client ids and transactions apart). Without QMI_DEVICE the
// library uses kQmiDefaultDevice, which modemsim also listens on by default.
//
// System events: the library's own thread watches the transport. Losing it
// calls the handler with QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND (every open
// client is then gone on the modem's side); the thread keeps reconnecting
// and, once it is back, calls QMI_SYS_EVENT_MODEM_IN_SERVICE_IND. The
// handler runs on that thread, with a non-null event-information pointer.
//
// Raw requests: the caller's request buffer holds kQmiRawRequestHeaderLen
// leading bytes of room before its TLVs; the library sends the TLVs after
// them. The response buffer receives the response TLVs, the result TLV
// (type 0x02) first; a response longer than the buffer is cut to it.
//
// Every call returns an error code (but the setting of wait signals) and
// logs nothing.
#pragma once

#include <signal.h>

#include <cstddef>
#include <cstdint>

inline constexpr const char* kQmiDefaultDevice = "unix:/tmp/modemsim-qmi.sock";
inline constexpr size_t kQmiRawRequestHeaderLen = 47;

// Results of the library's calls.
enum qmi_client_error_type : int {
    QMI_CLIENT_NO_ERR = 0,
    QMI_CLIENT_INTERNAL_ERR = -1,       // bad argument or library state
    QMI_CLIENT_TIMEOUT_ERR = -2,        // no answer within the time-out
    QMI_CLIENT_TRANSPORT_ERR = -3,      // no transport, or it was lost meanwhile
    QMI_CLIENT_SERVICE_NOT_FOUND = -4,  // the modem does not offer the service
    QMI_CLIENT_INVALID_HANDLE = -5,     // unknown or stale client handle
    QMI_CLIENT_ALLOC_FAILURE = -6,      // the modem refused a client id
    QMI_CLIENT_ALREADY_STARTED = -7,    // qmi_init while the library runs
    QMI_CLIENT_BAD_RESPONSE = -8,       // a response that does not decode
};

// System events, as the handler receives them.
enum qmi_sys_event_type : int {
    QMI_SYS_EVENT_SYNC_IND = 1,
    QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND = 2,
    QMI_SYS_EVENT_MODEM_IN_SERVICE_IND = 3,
};

// What the handler's event-information pointer points to.
struct qmi_sys_event_info {
    const char* device;  // the endpoint the event is about
};

using qmi_sys_event_handler = void (*)(int event, void* event_info, void* user_data);

// The IDL description of a service. Raw messages need only the service id;
// max_msg_len describes encoded IDL messages and does not bound raw ones.
struct qmi_idl_service_object {
    uint32_t library_version;
    uint32_t idl_version;
    uint32_t service_id;
    uint32_t max_msg_len;
    uint16_t n_msgs[3];  // requests, responses, indications
    const void* msgid_to_msg[3];
    const void* p_type_table;
};
using qmi_idl_service_object_type = const qmi_idl_service_object*;

// One service the modem offers, as the service list reports it.
struct qmi_service_info {
    uint32_t service_id;
    uint16_t major_version;
    uint16_t minor_version;
    uint32_t instance;
};

// Reserved; the library needs nothing from the caller's OS.
struct qmi_client_os_params {
    int reserved;
};

// A client handle; 0 is never a valid one.
using qmi_client_type = uint32_t;

// Indications of an open client: (client, message id, TLVs, length, data).
using qmi_client_ind_cb = void (*)(qmi_client_type client, unsigned int msg_id, const void* tlvs,
                                   unsigned int tlvs_len, void* ind_cb_data);

// Starts the library (one at a time): a non-negative handle, or an error.
int qmi_init(qmi_sys_event_handler handler, void* user_data);

// Asks the modem for its services and fills `info` with the entry of
// service_obj's service. *num_entries: capacity in, entries filled out;
// *num_services: services found. 0, or an error.
int qmi_client_get_service_list(qmi_idl_service_object_type service_obj, qmi_service_info* info,
                                unsigned int* num_entries, unsigned int* num_services);

// Opens a client of the service (a client id allocated through CTL).
int qmi_client_init(const qmi_service_info* info, qmi_idl_service_object_type service_obj,
                    qmi_client_ind_cb ind_cb, void* ind_cb_data, qmi_client_os_params* os_params,
                    qmi_client_type* client);

// One synchronous raw exchange. req_len counts the leading header room.
// resp_len_received, when not null, gets the number of bytes written.
int qmi_client_send_raw_msg_sync(qmi_client_type client, unsigned int msg_id, const void* req,
                                 unsigned int req_len, void* resp, unsigned int resp_len,
                                 unsigned int* resp_len_received, unsigned int timeout_ms);

// Releases the client (its client id goes back to the modem when reachable).
int qmi_client_release(qmi_client_type client);

// Signals (of `signals`; null: none) that a synchronous call lets in on its
// thread while it waits for the modem's answer, holding no lock of the
// library: for a caller that keeps signals blocked except where their
// handler may run. A handler that returns resumes the wait. Async-signal-
// safe, so a handler may clear it.
void qmi_client_set_wait_signals(const sigset_t* signals);

// Stops the library's thread, closes the transport, forgets every client.
int qmi_release(int handle);
