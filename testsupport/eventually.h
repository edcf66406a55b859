// Waiting in tests for something a process must do.
#pragma once

#include <chrono>
#include <thread>

namespace rt::test {

// The one bound on anything a test waits for: generous, so that a loaded
// two-core machine running sanitizers never outruns it. A test that passes
// waits only as long as the event takes.
inline constexpr int kEventTimeoutMs = 30000;

// Checks `holds` until it is true; false once the time-out has passed.
template <class Check>
bool Eventually(Check holds, int timeout_ms = kEventTimeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace rt::test
