// Where the DIAG bytes come from, as DIAG_DEVICE names it:
//
//   unix:/path                      a stream socket (modemsim's DIAG side)
//   /dev/ttyUSB0                    a DIAG serial port (raw, 115200 8N1)
//   file:/path.qmdl[?pace=real&loop=1&sub=2]
//                                   a capture replayed once the log mask is
//                                   set: as fast as possible unless
//                                   pace=real (the packets' own timestamps),
//                                   once unless loop=1
//
// Unset or empty: kDefaultDiagDevice.
//
// Multi-SIM modems wrap each packet with a subscription id; the library
// delivers one subscription's packets only: the first one seen, unless
// sub=N (files) or the environment variable DIAG_SUBSCRIPTION=N (any
// source; sub=N wins) names another.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dmux {

inline constexpr const char* kDiagDeviceEnv = "DIAG_DEVICE";
inline constexpr const char* kDefaultDiagDevice = "unix:/tmp/modemsim-diag.sock";
inline constexpr const char* kDiagSubscriptionEnv = "DIAG_SUBSCRIPTION";

struct DiagSource {
    enum class Kind { kUnixSocket, kSerial, kFile };
    Kind kind = Kind::kUnixSocket;
    std::string path;
    bool pace_real = false;     // files only
    bool loop = false;          // files only
    uint32_t subscription = 0;  // 0: the first one seen
};

// nullopt for text that names no source (an unknown option, an empty path).
std::optional<DiagSource> ParseDiagSource(const std::string& text);
// DIAG_DEVICE, or the default.
std::string DiagDeviceFromEnvironment();
// DIAG_SUBSCRIPTION as a number, 0 when unset or not a positive number.
uint32_t DiagSubscriptionFromEnvironment();

}  // namespace dmux
