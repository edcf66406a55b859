// A test's DIAG client on modemsim's DIAG side: sends set-mask commands
// and collects the log packets that arrive.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/hdlc.h"

namespace modemsim {

class DiagClient {
  public:
    explicit DiagClient(const std::string& path) {
        fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    }
    ~DiagClient() { ::close(fd_); }
    bool connected() const { return connected_; }

    // Enables exactly `codes` of one equipment id.
    bool Enable(uint32_t equipment, const std::vector<uint16_t>& codes) {
        std::vector<uint8_t> mask(512, 0);
        for (uint16_t code : codes) mask[(code & 0xFFF) >> 3] |= uint8_t(1 << (code & 7));
        std::vector<uint8_t> frame =
            dmux::HdlcEncode(dmux::BuildLogConfigSetMask(equipment, 0xFFF, mask));
        return ::send(fd_, frame.data(), frame.size(), MSG_NOSIGNAL) == ssize_t(frame.size());
    }
    // Log payloads received within `ms`, by code (the last of each); with
    // `whole_records`, each log record with its 12-byte header.
    std::map<uint16_t, std::vector<uint8_t>> Collect(int ms, bool whole_records = false) {
        std::map<uint16_t, std::vector<uint8_t>> out;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        std::vector<uint8_t> buffer(65536);
        while (true) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                            deadline - std::chrono::steady_clock::now())
                            .count();
            if (left <= 0) break;
            pollfd pfd{fd_, POLLIN, 0};
            if (::poll(&pfd, 1, int(left)) <= 0) continue;
            ssize_t n = ::read(fd_, buffer.data(), buffer.size());
            if (n <= 0) break;
            deframer_.Feed(buffer.data(), size_t(n), [&](std::span<const uint8_t> body) {
                dmux::DiagFrame frame = dmux::ParseDiagFrame(body);
                if (frame.kind != dmux::DiagFrameKind::kLogPacket) return;
                out[frame.log_code] = std::vector<uint8_t>(
                    frame.record.begin() + (whole_records ? 0 : 12), frame.record.end());
            });
        }
        return out;
    }

  private:
    int fd_ = -1;
    bool connected_ = false;
    dmux::HdlcDeframer deframer_;
};

inline std::set<uint16_t> Codes(const std::map<uint16_t, std::vector<uint8_t>>& packets) {
    std::set<uint16_t> out;
    for (const auto& [code, payload] : packets) out.insert(code);
    return out;
}

}  // namespace modemsim
