// The PDN readers against devsim's connection service and interface
// objects, through a real broker.
#include "reports/lte/pdn_info.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "platform/qnx/slogf.h"
#include "service/report_writer.h"
#include "testsupport/devsim_process.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::DevsimProcess;
using rt::test::LinesStartingWith;
using rt::test::PpsBroker;

// What GetPDNInfo adds for one PDN, as the report's attribute lines.
std::string PdnReport(const char* name, int entry) {
    return rt::test::WrittenReport([&](ReportWriter& report) { GetPDNInfo(name, entry, report); });
}

// A scenario whose "internet" PDN runs on rmnet2 with these interface
// members (JSON text of "ip_addresses" and "nameservers").
std::string InternetOn(const std::string& addresses, const std::string& servers) {
    return R"({"interfaces": {"rmnet2": {"connected": true, "ip_addresses": )" + addresses +
           R"(, "nameservers": )" + servers + "}}}";
}

// Each case gets its own broker, so no object of an earlier devsim stays.
class PdnInfoTest : public ::testing::Test {};

TEST_F(PdnInfoTest, InterfaceMembersDecideTheAddresses) {
    struct Case {
        const char* what;
        std::string addresses;
        std::string servers;
        std::string expected;  // the apn3_ address and name-server lines
    };
    const Case cases[] = {
        {"one of each class; an address without a prefix is ignored",
         R"(["10.1.2.3/24", "fe80::1/64", "10.9.9.9"])", R"(["8.8.8.8", "8.8.4.4"])",
         "apn3_ipv4_addr::10.1.2.3/24\napn3_ipv6_addr::fe80::1/64\n"
         "apn3_dns_ip_addr::8.8.8.8,8.8.4.4,\n"},
        {"an IPv4 address is cut to 15 characters", R"(["192.168.100.200/24"])", "[]",
         "apn3_ipv4_addr::192.168.100.200\napn3_ipv6_addr::No data available!\n"
         "apn3_dns_ip_addr::\n"},
        {"an IPv6 address without fe is taken as the IPv4 one", R"(["2001:db8::5/64"])", "[]",
         "apn3_ipv4_addr::2001:db8::5/64\napn3_ipv6_addr::No data available!\n"
         "apn3_dns_ip_addr::\n"},
        {"an IPv6 address is cut to 31 characters",
         R"(["fe80:1111:2222:3333:4444:5555:6666:7777/64"])", "[]",
         "apn3_ipv4_addr::No data available!\napn3_ipv6_addr::fe80:1111:2222:3333:4444:5555:6\n"
         "apn3_dns_ip_addr::\n"},
        {"a later address of a class replaces the earlier", R"(["10.0.0.1/8", "10.0.0.2/8"])", "[]",
         "apn3_ipv4_addr::10.0.0.2/8\napn3_ipv6_addr::No data available!\napn3_dns_ip_addr::\n"},
        {"elements that are not strings are passed over",
         R"([7, {"a": 1}, null, "10.0.0.1/8", [1]])", R"([1, "8.8.8.8", false, "8.8.4.4"])",
         "apn3_ipv4_addr::10.0.0.1/8\napn3_ipv6_addr::No data available!\n"
         "apn3_dns_ip_addr::8.8.8.8,8.8.4.4,\n"},
        {"name servers past 49 characters end the list", "[]",
         R"(["111.111.111.111", "222.222.222.222", "133.133.133.133", "44.44.44.44", "1.1.1.1"])",
         "apn3_ipv4_addr::No data available!\napn3_ipv6_addr::No data available!\n"
         "apn3_dns_ip_addr::111.111.111.111,222.222.222.222,133.133.133.133,\n"},
        {"one name server longer than the list", "[]",
         R"(["this.name.server.is.far.too.long.to.fit.in.forty.nine.characters"])",
         "apn3_ipv4_addr::No data available!\napn3_ipv6_addr::No data available!\n"
         "apn3_dns_ip_addr::\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PpsBroker broker;
        DevsimProcess devsim(InternetOn(c.addresses, c.servers));
        ASSERT_TRUE(devsim.ready()) << devsim.process().Stderr();
        EXPECT_EQ(PdnReport("internet", 3), "apn3_name::vzwinternet\n" + c.expected);
    }
}

TEST_F(PdnInfoTest, PdnMemberProblemsGivePlaceholdersOrNothing) {
    struct Case {
        const char* what;
        std::string pdn;  // the "internet" member, JSON
        std::string expected;
        std::string logged;
    };
    const std::string placeholders =
        "apn3_ipv4_addr::No data available!\napn3_ipv6_addr::No data available!\n"
        "apn3_name::No data available!\n";
    const Case cases[] = {
        {"no connected member", R"({"connected": null, "apn": "x", "net_if": "rmnet2"})",
         placeholders, "Error in pps_decoder_get_bool for 'connected'"},
        {"connected is not a boolean", R"({"connected": "yes", "net_if": "rmnet2"})", placeholders,
         "Error in pps_decoder_get_bool for 'connected'"},
        {"no such PDN", "null", placeholders, "Error in pps_decoder_push for 'internet'"},
        {"a missing interface",
         R"({"connected": true, "apn": "web", "net_if": "rmnet9", "net_if_IPv6": "rmnet9"})",
         "apn3_name::web\napn3_ipv4_addr::No data available!\n"
         "apn3_ipv6_addr::No data available!\n",
         "failed to open /pps/services/networking/interfaces/rmnet9"},
        {"an interface name that would open another object with options",
         R"({"connected": true, "apn": "web", "net_if": "rmnet2?server,wait", "net_if_IPv6": "rmnet2?server,wait"})",
         "apn3_name::web\napn3_ipv4_addr::No data available!\n"
         "apn3_ipv6_addr::No data available!\n",
         "failed to open /pps/services/networking/interfaces/rmnet2?server,wait"},
        {"an interface path that leaves the interfaces",
         R"({"connected": true, "apn": "web", "net_if": "../../../system/nvram/deviceinfo", "net_if_IPv6": "rmnet2"})",
         "apn3_name::web\napn3_ipv4_addr::No data available!\n"
         "apn3_ipv6_addr::No data available!\napn3_ipv6_addr::fe80::5c:2/64\n",
         "failed to open /pps/services/networking/interfaces/../../../system/nvram/deviceinfo"},
        {"an unreadable net_if; the IPv6 interface counts as another",
         R"({"connected": true, "apn": "web", "net_if": 5, "net_if_IPv6": "rmnet0"})",
         "apn3_name::web\napn3_ipv6_addr::fe80::a1:4/64\n",
         "Error in pps_decoder_get_string for 'net_if'"},
        {"IPv6 only on a second interface",
         R"({"connected": true, "apn": "web", "net_if": "rmnet1", "net_if_IPv6": "rmnet0"})",
         "apn3_name::web\napn3_ipv4_addr::No data available!\n"
         "apn3_ipv6_addr::No data available!\napn3_dns_ip_addr::\n"
         "apn3_ipv6_addr::fe80::a1:4/64\n",
         ""},
        {"no apn member",
         R"({"connected": true, "apn": null, "net_if": "rmnet1", "net_if_IPv6": 3})",
         "apn3_name::No data available!\napn3_ipv4_addr::No data available!\n"
         "apn3_ipv6_addr::No data available!\napn3_dns_ip_addr::\n",
         "Error in pps_decoder_get_string for 'net_if_IPv6'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PpsBroker broker;
        DevsimProcess devsim(R"({"pdns": {"internet": )" + c.pdn + "}}");
        ASSERT_TRUE(devsim.ready()) << devsim.process().Stderr();
        SlogCapture log;
        EXPECT_EQ(PdnReport("internet", 3), c.expected);
        if (!c.logged.empty()) {
            bool found = false;
            for (const std::string& line : log.texts())
                found = found || line.find(c.logged) != std::string::npos;
            EXPECT_TRUE(found) << "no log line with: " << c.logged;
        }
    }
}

TEST_F(PdnInfoTest, NoConnectionServiceLogsAndAddsNothing) {
    PpsBroker broker;
    SlogCapture log;
    EXPECT_EQ(PdnReport("internet", 3), "");
    EXPECT_TRUE(log.contains(std::string(30 - 10, ' ') + "GetPDNInfo : Failed to open "
                                                         "/pps/services/cds/vesta/status\n"));
    EXPECT_EQ(PdnReport(nullptr, 3), "");
}

TEST_F(PdnInfoTest, StatusObjectLargerThanItsBufferIsReadCut) {
    // 40 PDNs with long APN names put "internet" past the 4095 bytes read:
    // the cut text is either refused by the decoder or lacks the PDN, and
    // nothing is read past the buffer.
    std::string pdns = R"({"pdns": {)";
    for (int i = 0; i < 40; ++i)
        pdns += "\"pdn" + std::to_string(i) + R"(": {"connected": true, "apn": ")" +
                std::string(100, 'a') + R"(", "net_if": "rmnet2"},)";
    pdns += R"("internet": {"connected": true, "apn": "late", "net_if": "rmnet2"}}})";
    PpsBroker broker;
    DevsimProcess devsim(pdns);
    ASSERT_TRUE(devsim.ready()) << devsim.process().Stderr();
    std::string report = PdnReport("internet", 3);
    EXPECT_TRUE(LinesStartingWith(report, "apn3_name::late").empty()) << report;
}

}  // namespace
