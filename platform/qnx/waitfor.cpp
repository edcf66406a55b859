#include "platform/qnx/waitfor.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/pps/pps_client.h"

namespace {

bool exists(const char* path) {
    if (std::strncmp(path, "/pps/", 5) == 0) return pps_exists(path);
    struct stat st;
    return ::stat(path, &st) == 0;
}

}  // namespace

int waitfor(const char* path, int max_ms, int poll_ms) {
    using Clock = std::chrono::steady_clock;
    if (poll_ms <= 0) poll_ms = 1;
    const auto deadline = Clock::now() + std::chrono::milliseconds(max_ms);
    for (;;) {
        if (exists(path)) return 0;
        if (Clock::now() >= deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(poll_ms));
    }
    errno = ETIMEDOUT;
    return -1;
}
