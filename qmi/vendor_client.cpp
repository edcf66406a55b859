#include "qmi/vendor_client.h"

#include "qmi/reset_events.h"
#include "service/tavora_errors.h"
#include "service/tavora_log.h"

namespace {

int qmi_library_handle = -1;
qmi_client_type vendor_qmi_client = 0;

}  // namespace

const qmi_idl_service_object vendor_service_object = {
    .library_version = 2,
    .idl_version = 1,
    .service_id = 0xE3,
    .max_msg_len = 0x14,
    .n_msgs = {0, 0, 0},
    .msgid_to_msg = {nullptr, nullptr, nullptr},
    .p_type_table = nullptr,
};

std::recursive_mutex& QmiStateMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

qmi_client_type VendorQmiClient() {
    std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
    return vendor_qmi_client;
}

namespace {
// Counts the drops by the event thread, so an open that a drop overtook is
// not stored as if the modem still knew it.
uint64_t vendor_client_drops = 0;
}  // namespace

void DropVendorQmiClient() {
    std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
    vendor_qmi_client = 0;
    ++vendor_client_drops;
}

int QmiLibraryHandle() {
    return qmi_library_handle;
}

int radio_tavora_qmi_init() {
    if (qmi_library_handle >= 0) return 0;
    qmi_library_handle = qmi_init(radio_tavora_reset_event_rx_hdlr, nullptr);
    if (qmi_library_handle >= 0) return 0;
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ERROR: qmi_init() failed (err=%d)",
          "radio_tavora_qmi_init", qmi_library_handle);
    return kTavoraErrInvalid;
}

int radio_tavora_vendor_qmi_client_init() {
    static const char* const kName = "radio_tavora_vendor_qmi_client_init";
    if (VendorQmiClient() != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: qmi message library already initialized", kName);
        return 0;
    }
    qmi_service_info service_info[1] = {};
    unsigned int num_entries = 1;
    unsigned int num_services = 1;
    int rc = qmi_client_get_service_list(&vendor_service_object, service_info, &num_entries,
                                         &num_services);
    if (rc != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: qmi_client_get_service_list returns %d", kName, rc);
        return kTavoraErrInvalid;
    }
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : starting QMI port initialization", kName);
    // The open itself waits on the modem: the lock is taken only to store.
    qmi_client_type opened = 0;
    uint64_t drops_before;
    {
        std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
        drops_before = vendor_client_drops;
    }
    rc = qmi_client_init(service_info, &vendor_service_object, nullptr, nullptr, nullptr, &opened);
    {
        std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
        if (rc == 0 && vendor_client_drops != drops_before) rc = QMI_CLIENT_TRANSPORT_ERR;
        vendor_qmi_client = (rc == 0) ? opened : 0;
    }
    if (rc != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ERROR: QMI port not initialized",
              kName);
        return rc;
    }
    return 0;
}

void radioTavoraInitializeQmi() {
    static const char* const kName = "radioTavoraInitializeQmi";
    int status = radio_tavora_qmi_init();
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI not initialized, status = %d",
              kName, status);
        return;
    }
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI initialized", kName);
    status = radio_tavora_vendor_qmi_client_init();
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : vendor QMI client not initialized: status = %d", kName, status);
    }
}

int radio_tavora_vendor_qmi_client_close() {
    static const char* const kName = "radio_tavora_vendor_qmi_client_close";
    qmi_client_type client = VendorQmiClient();
    if (client == 0) return 0;
    int rc = qmi_client_release(client);
    if (rc >= 0) {
        {
            std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
            // The event thread may have dropped it meanwhile; clear only ours.
            if (vendor_qmi_client == client) vendor_qmi_client = 0;
        }
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ERROR: QMI client %d released", kName,
              0);
    } else {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: error: QMI client release failed - error %d", kName, rc);
    }
    return rc;
}

void radio_tavora_qmi_release() {
    // The handle keeps its value: this runs only on the way out.
    if (qmi_library_handle >= 0) qmi_release(qmi_library_handle);
}

void radioTavoraCleanQmi() {
    int status = radio_tavora_vendor_qmi_client_close();
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : vendor QMI client is not closed properly: status = %d", "radioTavoraCleanQmi",
              status);
    }
    radio_tavora_qmi_release();
}

void ResetVendorQmiForTest() {
    qmi_client_type client = VendorQmiClient();
    if (client != 0) qmi_client_release(client);
    DropVendorQmiClient();
    if (qmi_library_handle >= 0) qmi_release(qmi_library_handle);
    qmi_library_handle = -1;
}
