// libFuzzer target: any text as one message of the server object, as
// PPSRead hands it over (at most 1023 bytes, NUL-terminated), through
// PPSProcess: client registry, object lines and dispatch.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "service/pps_server.h"

namespace {

volatile size_t g_sink = 0;

void Handler(PPSServer*, void*, uint64_t client_id, const char* msg, const char* id,
             const char* dat) {
    g_sink = g_sink + client_id + std::strlen(msg) + std::strlen(id) + (dat ? std::strlen(dat) : 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char buffer[1024];
    size_t length = size < sizeof buffer - 1 ? size : sizeof buffer - 1;
    std::memcpy(buffer, data, length);
    buffer[length] = '\0';
    PPSServer server;
    server.PPSSetDefaultHandler(Handler, nullptr);
    server.PPSAddCommand("radiostats", Handler, nullptr);
    server.PPSProcess(buffer);
    return 0;
}
