// Texts of the system that more than one part uses.
#pragma once

inline constexpr const char* kNoDataAvailable = "No data available!";
inline constexpr const char* kNotSupported = "Not supported!";

inline constexpr const char* kControlServerPath =
    "/pps/services/radioctrl/modem0/diag/control?server";
inline constexpr const char* kConfigObjectPath = "/pps/services/radioctrl/modem0/diag/config?delta";
