#include "config/tethering.h"

#include <poll.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/shell_command.h"
#include "service/tavora_log.h"
#include "service/termination_point.h"

namespace {

constexpr const char* kName = "handleTetheringCmd";

constexpr const char* kEnableCommands[] = {
    "msm_devctrl -f0",
    "sysctl -w net.inet.ip.forwarding=1",
    "pfctl -f /radio/etc/cellular_pf.conf",
    "pfctl -a cellular_anchor -f /radio/etc/cellular-anchor",
    "sysctl -w net.inet6.ip6.forwarding=1",
};

constexpr const char* kDisableCommands[] = {
    "msm_devctrl -f1",
    "pfctl -a cellular_anchor -F all",
    "sysctl -w net.inet.ip.forwarding=0",
    "sysctl -w net.inet6.ip6.forwarding=0",
};

// The third routing-table line holding "::", cut to its first five
// colon-separated fields: the /64 prefix with its trailing colon.
constexpr const char* kPrefixQuery = "route -n show|grep '::'|sed '3!d'|cut -d : -f1-5";

// The query prints one line; more than this is never a prefix.
constexpr size_t kPrefixOutputMax = 256;

// Reads what the query prints, up to kPrefixOutputMax bytes.
size_t ReadQueryOutput(int fd, char (&output)[kPrefixOutputMax]) {
    size_t used = 0;
    while (used < sizeof output) {
        pollfd ready{fd, POLLIN, 0};
        if (PollLettingTerminationIn(&ready, 1, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        ssize_t n = ::read(fd, output + used, sizeof output - used);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        used += static_cast<size_t>(n);
    }
    return used;
}

void Enable() {
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tethering Enabled from Tavora", kName);
    for (const char* command : kEnableCommands) RunShellCommand(command);

    ShellPipe query;
    if (!OpenShellPipe(kPrefixQuery, &query)) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s :  Prefix Extraction Failed ", kName);
        return;
    }
    char output[kPrefixOutputMax];
    size_t length = ReadQueryOutput(query.fd, output);
    char prefix[kTetherPrefixMax + 1];
    switch (ReadTetherPrefix(std::string_view(output, length), prefix)) {
        case TetherPrefix::kRead:
            break;
        case TetherPrefix::kTooLong:
            // A full-width prefix ("2001:0db8:0001:0002:") does not fit the
            // field; cut short it would give rndis0 an address of another
            // network, so no IPv6 tethering is configured rather than a wrong one.
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s :  Prefix longer than %d characters, IPv6 tethering not configured", kName,
                  static_cast<int>(kTetherPrefixMax));
            CloseShellPipe(&query);
            return;
        case TetherPrefix::kNotHex:
            // The prefix goes into shell command lines: only an IPv6 prefix
            // may, never text the shell would read as more commands.
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s :  Prefix is not an IPv6 prefix, IPv6 tethering not configured", kName);
            CloseShellPipe(&query);
            return;
    }
    slogf(kTavoraLogOpcode, kTavoraLogSeverity,
          "%30s :  Configuring RNDIS0 for IPv6 Tethering with Prefix %s", kName, prefix);

    char line[kTetherCommandSize];
    FormatTetherAddressCommand(prefix, line);
    if (RunShellCommand(line) == -1) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s :  Unable to configure RNDIS0 for IPv6 due to error opening shell ", kName);
    } else {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s :  RNDIS0 configured", kName);
    }
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Adding IPv6 route for tethering", kName);
    FormatTetherRouteCommand(prefix, line);
    if (RunShellCommand(line) == -1) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Unable to configure Tethering for IPv6 due to error opening shell ", kName);
    } else {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : IPv6 tethering enabled successfully ",
              kName);
    }
    // The query's pipe stays open until both IPv6 commands have run.
    CloseShellPipe(&query);
}

void Disable() {
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tethering Disabled from Tavora", kName);
    for (const char* command : kDisableCommands) RunShellCommand(command);
}

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool IsPrefixChar(char c) {
    return c == ':' || std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

void handleTetheringCmd(const char* value) {
    if (value == nullptr) return;
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s :  Attribute tethering_enabled has value: %s",
          kName, value);
    if (std::atoi(value) == 1) {
        Enable();
    } else {
        Disable();
    }
}

TetherPrefix ReadTetherPrefix(std::string_view output, char (&prefix)[kTetherPrefixMax + 1]) {
    prefix[0] = '\0';
    size_t start = 0;
    while (start < output.size() && IsSpace(output[start])) ++start;
    size_t end = start;
    while (end < output.size() && !IsSpace(output[end])) ++end;
    std::string_view word = output.substr(start, end - start);
    if (word.size() > kTetherPrefixMax) return TetherPrefix::kTooLong;
    for (char c : word)
        if (!IsPrefixChar(c)) return TetherPrefix::kNotHex;
    std::memcpy(prefix, word.data(), word.size());
    prefix[word.size()] = '\0';
    return TetherPrefix::kRead;
}

void FormatTetherAddressCommand(const char* prefix, char (&line)[kTetherCommandSize]) {
    std::snprintf(line, sizeof line, "ifconfig rndis0 inet6 %sa:b:10:1", prefix);
}

void FormatTetherRouteCommand(const char* prefix, char (&line)[kTetherCommandSize]) {
    std::snprintf(line, sizeof line, "route add -iface -inet6 %sa:b:10::/64 %sa:b:10:2 -ifp rndis0",
                  prefix, prefix);
}
