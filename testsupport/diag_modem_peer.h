// The modem's end of a DIAG link, for tests of the DM library on a socket
// or a serial port: answer a set-mask command, send log frames, and collect
// what the library delivers to its callback.
#pragma once

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/hdlc.h"
#include "platform/dmux/kora_dmc.h"
#include "testsupport/eventually.h"

namespace rt::test {

// What the library delivered, in order (its callback runs on its thread).
struct DeliveredPackets {
    std::mutex mutex;
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> packets;

    size_t count() {
        std::lock_guard<std::mutex> hold(mutex);
        return packets.size();
    }
    std::vector<uint32_t> codes() {
        std::lock_guard<std::mutex> hold(mutex);
        std::vector<uint32_t> out;
        for (const auto& packet : packets) out.push_back(packet.first);
        return out;
    }
    // Waits (bounded) until `n` packets have come; false if they did not.
    bool WaitFor(size_t n, int timeout_ms = kEventTimeoutMs) {
        return Eventually([&] { return count() >= n; }, timeout_ms);
    }
    // The library's callback; user_data is the DeliveredPackets.
    static void Collect(void* user_data, uint32_t code, const uint8_t* record, uint32_t length) {
        auto* delivered = static_cast<DeliveredPackets*>(user_data);
        std::lock_guard<std::mutex> hold(delivered->mutex);
        delivered->packets.emplace_back(code, std::vector<uint8_t>(record, record + length));
    }
};

inline bool WriteAll(int fd, const std::vector<uint8_t>& bytes) {
    return ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

// Reads until one set-mask command has come (bounded), and answers it.
inline std::optional<dmux::LogConfigSetMask> AnswerOneMaskCommand(int fd) {
    dmux::HdlcDeframer deframer;
    std::optional<dmux::LogConfigSetMask> request;
    uint8_t buffer[4096];
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kEventTimeoutMs);
    while (!request && std::chrono::steady_clock::now() < deadline) {
        pollfd pfd{fd, POLLIN, 0};
        if (::poll(&pfd, 1, 100) <= 0) continue;
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) break;
        deframer.Feed(buffer, static_cast<size_t>(n), [&](std::span<const uint8_t> body) {
            if (!request) request = dmux::ParseLogConfigSetMask(body);
        });
    }
    if (request) {
        WriteAll(fd, dmux::HdlcEncode(dmux::BuildLogConfigResponse(
                         {dmux::kLogConfigSetMask, 0, request->equipment_id, request->last_item})));
    }
    return request;
}

// One framed log packet of `code` with a one-byte payload.
inline std::vector<uint8_t> LogFrame(uint16_t code, uint8_t payload = 1) {
    return dmux::HdlcEncode(
        dmux::BuildLogPacketBody(dmux::BuildLogRecord(code, 0, std::vector<uint8_t>{payload})));
}

// The daemon's set-mask request for equipment 4 (WCDMA, last item 0x777)
// with only 0x4125 enabled: item 0x125 is bit 5 of mask byte 36.
inline std::vector<uint8_t> Only4125MaskRequest() {
    std::vector<uint8_t> request(KORA_DMC_LOG_CONFIG_SIZE, 0);
    request[0] = 4;
    request[4] = 0x77;
    request[5] = 0x47;
    request[8 + 36] = 0x20;
    return request;
}

}  // namespace rt::test
