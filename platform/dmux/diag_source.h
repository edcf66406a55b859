// Where the DIAG bytes come from, as DIAG_DEVICE names it:
//
//   unix:/path                      a stream socket (modemsim's DIAG side)
//   /dev/ttyUSB0                    a DIAG serial port (raw, 115200 8N1)
//   file:/path.qmdl[?pace=real&loop=1]
//                                   a capture replayed once the log mask is
//                                   set: as fast as possible unless
//                                   pace=real (the packets' own timestamps),
//                                   once unless loop=1
//
// Unset or empty: kDefaultDiagDevice.
#pragma once

#include <optional>
#include <string>

namespace dmux {

inline constexpr const char* kDiagDeviceEnv = "DIAG_DEVICE";
inline constexpr const char* kDefaultDiagDevice = "unix:/tmp/modemsim-diag.sock";

struct DiagSource {
    enum class Kind { kUnixSocket, kSerial, kFile };
    Kind kind = Kind::kUnixSocket;
    std::string path;
    bool pace_real = false;  // files only
    bool loop = false;       // files only
};

// nullopt for text that names no source (an unknown option, an empty path).
std::optional<DiagSource> ParseDiagSource(const std::string& text);
// DIAG_DEVICE, or the default.
std::string DiagDeviceFromEnvironment();

}  // namespace dmux
