// For the world tests: one RAT measurement request of `rat_type` to a
// modemsim QMI endpoint, through the QMI client library as the daemon
// sends it. Returns the raw response; empty when any step failed.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/qmi_client/qmi_client.h"
#include "tools/modemsim/vendor_service.h"

namespace modemsim {

inline std::vector<uint8_t> RequestRatMeasurement(const std::string& qmi_endpoint,
                                                  uint8_t rat_type) {
    setenv("QMI_DEVICE", qmi_endpoint.c_str(), 1);
    const qmi_idl_service_object vendor = {2, 1, 0xE3, 0x14, {0, 0, 0}, {}, nullptr};
    std::vector<uint8_t> response;
    int handle = qmi_init(nullptr, nullptr);
    qmi_service_info info[1] = {};
    unsigned entries = 1, services = 1;
    qmi_client_type client = 0;
    if (handle >= 0 && qmi_client_get_service_list(&vendor, info, &entries, &services) == 0 &&
        qmi_client_init(info, &vendor, nullptr, nullptr, nullptr, &client) == 0) {
        std::vector<uint8_t> request(kQmiRawRequestHeaderLen, 0);
        request.insert(request.end(), {0x01, 0x01, 0x00, rat_type});
        std::vector<uint8_t> answer(kRatMeasResponseSize, 0);
        unsigned received = 0;
        if (qmi_client_send_raw_msg_sync(client, kMsgRatMeasInfo, request.data(),
                                         unsigned(request.size()), answer.data(),
                                         unsigned(answer.size()), &received, 2000) == 0)
            response = std::move(answer);
    }
    if (handle >= 0) qmi_release(handle);
    unsetenv("QMI_DEVICE");
    return response;
}

}  // namespace modemsim
