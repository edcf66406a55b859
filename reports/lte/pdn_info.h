// The packet-data connections as the connection service reports them: each
// PDN's APN name, addresses and name servers, read from
// /pps/services/cds/vesta/status and the network-interface objects under
// /pps/services/networking/interfaces/, added to a report being built.
#pragma once

class ReportWriter;

// Adds apnN_name, apnN_ipv4_addr, apnN_ipv6_addr and apnN_dns_ip_addr of the
// PDN called `logical_name` ("internet", "carrier_ims", ...) to `report`. A
// PDN that is not connected adds nothing.
void GetPDNInfo(const char* logical_name, int entry, ReportWriter& report);

// Reads one interface object: its last IPv4-looking and IPv6 ("fe") address
// that carry a prefix length, and its name servers as a comma-terminated
// list. The caller sets the three out-values to null; each is set only when
// found, to a process-wide buffer valid until the next call. -1 when the
// object cannot be opened, 0 otherwise.
int GetNetIpDnsIpInfo(const char* interface_name, const char** ipv4, const char** ipv6,
                      const char** nameservers);

// The decoding behind the two readers, on an object's text as read (at most
// 4095 bytes, terminated; decoded in place).
void AddPdnFromStatusText(char* text, const char* logical_name, int entry, ReportWriter& report);
void ReadInterfaceText(char* text, const char** ipv4, const char** ipv6, const char** nameservers);
