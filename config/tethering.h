// tether_enable: USB tethering of the cellular data connection switched on
// or off by the platform's shell command lines, and on enable an IPv6
// address and route on rndis0 built from the prefix the routing table holds.
#pragma once

#include <cstddef>
#include <string_view>

// The prefix field: at most this many characters.
inline constexpr size_t kTetherPrefixMax = 19;
// Each IPv6 command line is formatted into a buffer of this size.
inline constexpr size_t kTetherCommandSize = 128;

// The action behind tether_enable: 1 (as atoi reads it) enables, anything
// else disables.
void handleTetheringCmd(const char* value);

// What the prefix query printed, read as its first whitespace-delimited word.
enum class TetherPrefix {
    kRead,     // the word (empty when there is none) is in the field
    kTooLong,  // longer than the field
    kNotHex,   // holds more than hexadecimal digits and colons
};
// Reads the word into `prefix`; on anything but kRead `prefix` is empty.
TetherPrefix ReadTetherPrefix(std::string_view output, char (&prefix)[kTetherPrefixMax + 1]);

// The two IPv6 command lines for a prefix of at most kTetherPrefixMax characters.
void FormatTetherAddressCommand(const char* prefix, char (&line)[kTetherCommandSize]);
void FormatTetherRouteCommand(const char* prefix, char (&line)[kTetherCommandSize]);
