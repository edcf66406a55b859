// What every log line of the daemon's own code carries: slogf with this
// opcode and severity, a format beginning "%30s : " and the reporting
// operation's name as first argument.
#pragma once

#include "platform/qnx/slogf.h"

inline constexpr int kTavoraLogOpcode = 10000;
inline constexpr int kTavoraLogSeverity = SLOG_DEBUG1;
// The PPSServer's own registry messages.
inline constexpr int kPPSServerLogOpcode = 10100;
