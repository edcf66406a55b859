// libFuzzer target: whatever another service answers, through the decoding
// of the PDN and APN readers. The first byte picks the text's kind (the
// connection service's status object, an interface object, an OMA-DM
// answer); the rest is the text as read (at most 4095 bytes, terminated).
// Interfaces named by a status text cannot be opened here (no broker), so
// that path is taken too.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "reports/lte/apn_info.h"
#include "reports/lte/pdn_info.h"
#include "service/report_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool no_broker = ::setenv("PPS_SOCKET", "/nonexistent/ppsd.sock", 1) == 0;
    (void)no_broker;
    if (size == 0) return 0;
    char text[4096];
    size_t length = size - 1 < sizeof text - 1 ? size - 1 : sizeof text - 1;
    std::memcpy(text, data + 1, length);
    text[length] = '\0';

    ReportWriter report(-1);
    switch (data[0] % 3) {
        case 0:
            AddPdnFromStatusText(text, "internet", 3, report);
            break;
        case 1: {
            const char* ipv4 = nullptr;
            const char* ipv6 = nullptr;
            const char* servers = nullptr;
            ReadInterfaceText(text, &ipv4, &ipv6, &servers);
            // The texts returned must be terminated inside their buffers.
            size_t sum = (ipv4 ? std::strlen(ipv4) : 0) + (ipv6 ? std::strlen(ipv6) : 0) +
                         (servers ? std::strlen(servers) : 0);
            if (sum > 15 + 31 + 49) std::abort();
            break;
        }
        default:
            AddLeafAnswerText(text, "Name", 3, report);
            if (std::strlen(CurrentApnName) > 255) std::abort();
            break;
    }
    return 0;
}
