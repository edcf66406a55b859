// The PDN readers: the connection service's status object names each PDN's
// APN and interfaces; each interface object holds its addresses and name
// servers. Both are read with one read into a fixed buffer and decoded.
#include "reports/lte/pdn_info.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/pps/pps_client.h"
#include "service/pps_object_text.h"
#include "service/report_writer.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"

namespace {

constexpr const char* kPdnInfoName = "GetPDNInfo";
constexpr const char* kNetInfoName = "GetNetIpDnsIpInfo";
constexpr const char* kStatusObjectPath = "/pps/services/cds/vesta/status";
constexpr const char* kInterfacesPrefix = "/pps/services/networking/interfaces/";

// The attributes of PDN entry n.
constexpr const char* kIpv4AddressFormat = "apn%1d_ipv4_addr";
constexpr const char* kIpv6AddressFormat = "apn%1d_ipv6_addr";
constexpr const char* kDnsAddressFormat = "apn%1d_dns_ip_addr";
constexpr const char* kApnNameFormat = "apn%1d_name";

constexpr size_t kObjectBufferSize = 4096;
constexpr size_t kIpv4Size = 16;
constexpr size_t kIpv6Size = 32;
constexpr size_t kNameServersSize = 50;

// Process-wide: the texts GetNetIpDnsIpInfo returns point into these.
char interface_buffer[kObjectBufferSize];
char ipv4_address[kIpv4Size];
char ipv6_address[kIpv6Size];
char name_servers[kNameServersSize];
char status_buffer[kObjectBufferSize];

// Copies at most size - 1 characters and terminates.
void CopyCut(char* to, size_t size, const char* from) {
    std::strncpy(to, from, size - 1);
    to[size - 1] = '\0';
}

// Reads one message of an object into `buffer` (cleared, at most size - 1
// bytes, so the text is always terminated); the bytes read.
ssize_t ReadObjectText(int fd, char* buffer, size_t size) {
    std::memset(buffer, 0, size);
    return pps_read(fd, buffer, size - 1);
}

// An interface name is one path component. A '/' would let the status
// object's text pick another object, and a '?' would add open options (a
// "?server,wait" open would block the loop for ever), so such a name is
// treated as an interface that cannot be opened.
bool IsPlainInterfaceName(const char* name) {
    return name[0] != '\0' && std::strpbrk(name, "/?") == nullptr;
}

// The addresses of ip_addresses that carry a prefix length: "fe" in the text
// makes an address IPv6 (link-local fe80::), anything else is taken as the
// IPv4 one; a later address of a class replaces the earlier.
void ReadAddresses(pps_decoder_t* decoder, const char** ipv4, const char** ipv6) {
    int status = pps_decoder_push(decoder, "ip_addresses");
    if (status != PPS_DECODER_OK) {
        LogDecoderPushError(kNetInfoName, status);
        return;
    }
    while (pps_decoder_type(decoder, nullptr) != PPS_TYPE_NONE) {
        const char* address = nullptr;
        // A non-string element is consumed by the failed read, so the walk
        // moves past it.
        if (pps_decoder_get_string(decoder, nullptr, &address) != PPS_DECODER_OK) continue;
        if (std::strchr(address, '/') == nullptr) continue;
        if (std::strstr(address, "fe") != nullptr) {
            CopyCut(ipv6_address, kIpv6Size, address);
            *ipv6 = ipv6_address;
        } else {
            CopyCut(ipv4_address, kIpv4Size, address);
            *ipv4 = ipv4_address;
        }
    }
    pps_decoder_pop(decoder);
}

// The name servers as "a,b,": a server that would not fit whole into the
// 49 characters ends the list there, so the list never holds a cut address
// and is always a prefix of the servers.
void ReadNameServers(pps_decoder_t* decoder, const char** servers) {
    if (pps_decoder_push(decoder, "nameservers") != PPS_DECODER_OK) return;
    std::memset(name_servers, 0, kNameServersSize);
    size_t used = 0;
    bool full = false;
    while (pps_decoder_type(decoder, nullptr) != PPS_TYPE_NONE) {
        const char* server = nullptr;
        if (pps_decoder_get_string(decoder, nullptr, &server) != PPS_DECODER_OK || full) continue;
        size_t length = std::strlen(server);
        if (used + length + 1 > kNameServersSize - 1) {
            full = true;
            continue;
        }
        std::memcpy(name_servers + used, server, length);
        name_servers[used + length] = ',';
        used += length + 1;
    }
    pps_decoder_pop(decoder);
    *servers = name_servers;
}

// One PDN's addresses from its interface(s); the PDN's member is entered.
void AddPdnAddresses(pps_decoder_t* decoder, int entry, ReportWriter& report) {
    const char* ipv4 = nullptr;
    const char* ipv6 = nullptr;
    const char* servers = nullptr;
    const char* net_if = nullptr;
    int status = pps_decoder_get_string(decoder, "net_if", &net_if);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_string for 'net_if' : %d\n", kPdnInfoName,
              status);
        net_if = nullptr;
    } else if (GetNetIpDnsIpInfo(net_if, &ipv4, &ipv6, &servers) != 0) {
        report.NoData(Numbered(kIpv4AddressFormat, entry));
        report.NoData(Numbered(kIpv6AddressFormat, entry));
    } else {
        report.String(Numbered(kIpv4AddressFormat, entry), ipv4 ? ipv4 : kNoDataAvailable);
        report.String(Numbered(kIpv6AddressFormat, entry), ipv6 ? ipv6 : kNoDataAvailable);
        report.String(Numbered(kDnsAddressFormat, entry), servers ? servers : kNoDataAvailable);
    }

    const char* net_if_ipv6 = nullptr;
    status = pps_decoder_get_string(decoder, "net_if_IPv6", &net_if_ipv6);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_string for 'net_if_IPv6' : %d\n",
              kPdnInfoName, status);
        return;
    }
    // With no net_if to compare with, the IPv6 interface counts as another.
    if (net_if != nullptr && std::strcmp(net_if, net_if_ipv6) == 0) return;
    if (ipv6 != nullptr) return;
    const char* ipv6_there = nullptr;
    const char* unused_ipv4 = nullptr;
    const char* unused_servers = nullptr;
    if (GetNetIpDnsIpInfo(net_if_ipv6, &unused_ipv4, &ipv6_there, &unused_servers) != 0)
        ipv6_there = nullptr;
    report.String(Numbered(kIpv6AddressFormat, entry), ipv6_there ? ipv6_there : kNoDataAvailable);
}

// Where the PDN's member cannot be entered or read: its three placeholders.
void AddPdnPlaceholders(int entry, ReportWriter& report) {
    report.NoData(Numbered(kIpv4AddressFormat, entry));
    report.NoData(Numbered(kIpv6AddressFormat, entry));
    report.NoData(Numbered(kApnNameFormat, entry));
}

}  // namespace

void ReadInterfaceText(char* text, const char** ipv4, const char** ipv6, const char** nameservers) {
    PpsObjectText object(kNetInfoName, text, PpsObjectText::kParseStr);
    if (!object.ok()) return;
    bool connected = false;
    if (pps_decoder_get_bool(object.decoder(), nullptr, &connected) == PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              connected ? "%30s : IP interface Connected\n" : "%30s : IP interface Disconnected\n",
              kNetInfoName);
    }
    ReadAddresses(object.decoder(), ipv4, ipv6);
    ReadNameServers(object.decoder(), nameservers);
}

void AddPdnFromStatusText(char* text, const char* logical_name, int entry, ReportWriter& report) {
    PpsObjectText status(kPdnInfoName, text);
    if (!status.ok()) return;
    pps_decoder_t* decoder = status.decoder();
    int code = pps_decoder_push(decoder, logical_name);
    if (code != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_push for '%s' : %d\n", kPdnInfoName,
              logical_name, code);
        AddPdnPlaceholders(entry, report);
        return;
    }
    bool connected = false;
    code = pps_decoder_get_bool(decoder, "connected", &connected);
    if (code != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_bool for 'connected' : %d\n", kPdnInfoName,
              code);
        AddPdnPlaceholders(entry, report);
    } else if (connected) {
        const char* apn = nullptr;
        if (pps_decoder_get_string(decoder, "apn", &apn) != PPS_DECODER_OK) apn = kNoDataAvailable;
        report.String(Numbered(kApnNameFormat, entry), apn);
        AddPdnAddresses(decoder, entry, report);
    }
    pps_decoder_pop(decoder);
}

int GetNetIpDnsIpInfo(const char* interface_name, const char** ipv4, const char** ipv6,
                      const char** nameservers) {
    std::memset(interface_buffer, 0, kObjectBufferSize);
    std::snprintf(interface_buffer, kObjectBufferSize, "%s%s", kInterfacesPrefix, interface_name);
    int fd = -1;
    if (IsPlainInterfaceName(interface_name)) {
        fd = pps_open(interface_buffer, O_RDONLY);
    } else {
        errno = ENOENT;
    }
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: opening %s resulted with error %s", kNetInfoName, interface_buffer,
              std::strerror(errno));
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : failed to open /pps/services/networking/interfaces/%s\n", kNetInfoName,
              interface_name);
        return -1;
    }
    if (ReadObjectText(fd, interface_buffer, kObjectBufferSize) > 0)
        ReadInterfaceText(interface_buffer, ipv4, ipv6, nameservers);
    ::close(fd);
    return 0;
}

void GetPDNInfo(const char* logical_name, int entry, ReportWriter& report) {
    if (logical_name == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Invalid PDN Logical Name(%s)",
              kPdnInfoName, std::strerror(errno));
        return;
    }
    int fd = pps_open(kStatusObjectPath, O_RDONLY);
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : ERROR: /pps/services/cds/vesta/status",
              kPdnInfoName);
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Failed to open %s\n", kPdnInfoName,
              kStatusObjectPath);
        return;
    }
    if (ReadObjectText(fd, status_buffer, kObjectBufferSize) > 0)
        AddPdnFromStatusText(status_buffer, logical_name, entry, report);
    ::close(fd);
}
