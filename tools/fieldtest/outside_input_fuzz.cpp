// libFuzzer target: what the web screen takes from outside besides the
// broker's objects. The first byte picks the reader: gpsd's JSON lines
// (each line of the rest, as the gpsd client reads them) or an HTTP
// request's facts (method, Host, Origin and Content-Type, one a line) with
// the address the server listens on.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "tools/fieldtest/gpsd_client.h"
#include "tools/fieldtest/request_guard.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    std::string line;
    if (data[0] % 2 == 0) {
        while (std::getline(lines, line)) (void)fieldtest::PositionFromGpsdLine(line);
        std::string host;
        int port = 0;
        (void)fieldtest::ParseGpsdAddress(line, &host, &port);
        return 0;
    }
    fieldtest::RequestFacts request;
    std::getline(lines, request.method);
    std::getline(lines, request.host);
    request.has_origin = static_cast<bool>(std::getline(lines, request.origin));
    std::getline(lines, request.content_type);
    std::string listen_host;
    std::getline(lines, listen_host);
    (void)fieldtest::CheckRequest(request, listen_host.empty() ? "127.0.0.1" : listen_host, 8080);
    return 0;
}
