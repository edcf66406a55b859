// The daemon's errno-style results: 0 for success, these for the failures
// it detects itself; a library's own result passes through unchanged.
#pragma once

#include <cerrno>

inline constexpr int kTavoraErrInvalid = EINVAL;
inline constexpr int kTavoraErrNoEntry = ENOENT;
// The screen and the logs know these by number.
static_assert(kTavoraErrInvalid == 22 && kTavoraErrNoEntry == 2);
