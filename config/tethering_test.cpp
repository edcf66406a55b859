// Tethering with the platform's tools played by the logging stand-ins of
// tools/shellstandins, first on PATH: the command lines the daemon runs, in
// their order, for each value and routing table.
#include "config/tethering.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/qnx/slogf.h"
#include "testsupport/child_process.h"

namespace {

using ::testing::ElementsAreArray;

const std::vector<std::string> kEnableLines = {
    "msm_devctrl -f0",
    "sysctl -w net.inet.ip.forwarding=1",
    "pfctl -f /radio/etc/cellular_pf.conf",
    "pfctl -a cellular_anchor -f /radio/etc/cellular-anchor",
    "sysctl -w net.inet6.ip6.forwarding=1",
    "route -n show",
};
const std::vector<std::string> kDisableLines = {
    "msm_devctrl -f1",
    "pfctl -a cellular_anchor -F all",
    "sysctl -w net.inet.ip.forwarding=0",
    "sysctl -w net.inet6.ip6.forwarding=0",
};

// A routing table whose third "::" line is `third`.
std::string RoutesWithThird(const std::string& third) {
    return "Internet6:\n"
           "Destination        Gateway        Flags  Netif\n"
           "::/96              ::1            UGRS   lo0\n"
           "::1                ::1            UH     lo0\n" +
           third + "\n" + "fe80::%rmnet2/64   link#3         U      rmnet2\n";
}

std::vector<std::string> Ipv6Lines(const std::string& prefix) {
    return {"ifconfig rndis0 inet6 " + prefix + "a:b:10:1",
            "route add -iface -inet6 " + prefix + "a:b:10::/64 " + prefix + "a:b:10:2 -ifp rndis0"};
}

std::vector<std::string> Concat(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class TetheringTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* path = std::getenv("PATH");
        saved_path_ = path != nullptr ? path : "";
        ::setenv("PATH", (std::string(RT_SHELL_STANDINS_DIR) + ":" + saved_path_).c_str(), 1);
        ::setenv("SHELL_STANDINS_LOG", dir_.file("tools.log").c_str(), 1);
        ::setenv("SHELL_STANDINS_ROUTES", dir_.file("routes").c_str(), 1);
        SetRoutes("");
    }
    void TearDown() override {
        ::setenv("PATH", saved_path_.c_str(), 1);
        ::unsetenv("SHELL_STANDINS_LOG");
        ::unsetenv("SHELL_STANDINS_ROUTES");
    }
    void SetRoutes(const std::string& table) { std::ofstream(dir_.file("routes")) << table; }
    // The command lines the stand-ins logged, in order.
    std::vector<std::string> ToolLines() {
        std::ifstream in(dir_.file("tools.log"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    rt::test::TempDir dir_;
    std::string saved_path_;
    SlogCapture slog_;
};

struct ValueCase {
    const char* value;
    bool enables;
};

TEST_F(TetheringTest, OneEnablesAnyOtherNumberDisables) {
    SetRoutes(RoutesWithThird("2001:db8:1:2::/64  link#3         U      rmnet2"));
    const ValueCase cases[] = {{"1", true},  {"01", true},   {"0", false},
                               {"2", false}, {"yes", false}, {"", false}};
    for (const ValueCase& c : cases) {
        std::remove(dir_.file("tools.log").c_str());
        handleTetheringCmd(c.value);
        if (c.enables) {
            EXPECT_THAT(ToolLines(),
                        ElementsAreArray(Concat(kEnableLines, Ipv6Lines("2001:db8:1:2:"))))
                << "value '" << c.value << "'";
        } else {
            EXPECT_THAT(ToolLines(), ElementsAreArray(kDisableLines))
                << "value '" << c.value << "'";
        }
    }
    EXPECT_TRUE(
        slog_.contains("            handleTetheringCmd :  Attribute tethering_enabled has "
                       "value: 01"));
    EXPECT_TRUE(
        slog_.contains("            handleTetheringCmd :  Configuring RNDIS0 for IPv6 "
                       "Tethering with Prefix 2001:db8:1:2:"));
    EXPECT_TRUE(
        slog_.contains("            handleTetheringCmd : IPv6 tethering enabled "
                       "successfully "));
}

struct PrefixCase {
    const char* name;
    std::string third_route;  // empty: no IPv6 route at all
    std::vector<std::string> ipv6_lines;
    const char* logged;  // a line the daemon logs for this table
};

TEST_F(TetheringTest, TheIpv6LinesFollowThePrefixOfTheThirdRoute) {
    const PrefixCase cases[] = {
        {"slash_64", "2001:db8:1:2::/64  link#3  U  rmnet2", Ipv6Lines("2001:db8:1:2:"),
         "Configuring RNDIS0 for IPv6 Tethering with Prefix 2001:db8:1:2:"},
        // The longest prefix the 19-character field takes.
        {"nineteen", "2001:0db8:001:0002::/64  link#3  U  rmnet2", Ipv6Lines("2001:0db8:001:0002:"),
         "Configuring RNDIS0 for IPv6 Tethering with Prefix 2001:0db8:001:0002:"},
        // No route: both lines still run, with an empty prefix.
        {"no_route", "", Ipv6Lines(""), "Configuring RNDIS0 for IPv6 Tethering with Prefix "},
        // Full-width groups make 20 characters: not cut, not configured.
        {"too_long",
         "2001:0db8:0001:0002::/64  link#3  U  rmnet2",
         {},
         "Prefix longer than 19 characters, IPv6 tethering not configured"},
        // Text the shell would run as a command never reaches a command line.
        {"not_hex",
         "2001:db8:1:$(touch x)::/64  link#3  U  rmnet2",
         {},
         "Prefix is not an IPv6 prefix, IPv6 tethering not configured"},
    };
    for (const PrefixCase& c : cases) {
        std::remove(dir_.file("tools.log").c_str());
        slog_.clear();
        SetRoutes(c.third_route.empty() ? "Internet:\ndefault  100.66.12.10  UGS  rmnet2\n"
                                        : RoutesWithThird(c.third_route));
        handleTetheringCmd("1");
        EXPECT_THAT(ToolLines(), ElementsAreArray(Concat(kEnableLines, c.ipv6_lines))) << c.name;
        EXPECT_TRUE(slog_.contains(std::string("            handleTetheringCmd :  ") + c.logged))
            << c.name;
    }
}

struct WordCase {
    std::string output;
    TetherPrefix result;
    const char* prefix;
};

TEST(TetherPrefixTest, FirstWordWithinTheField) {
    const WordCase cases[] = {
        {"2001:db8:1:2:\n", TetherPrefix::kRead, "2001:db8:1:2:"},
        {"", TetherPrefix::kRead, ""},
        {" \t\n", TetherPrefix::kRead, ""},
        {"  fe80:1:: trailing words\n", TetherPrefix::kRead, "fe80:1::"},
        {std::string(19, 'a'), TetherPrefix::kRead, "aaaaaaaaaaaaaaaaaaa"},
        {std::string(20, 'a'), TetherPrefix::kTooLong, ""},
        {"2001:0db8:0001:0002:\n", TetherPrefix::kTooLong, ""},
        {"2001;reboot\n", TetherPrefix::kNotHex, ""},
        {std::string("20\0"
                     "01:",
                     5),
         TetherPrefix::kNotHex, ""},
    };
    for (const WordCase& c : cases) {
        char prefix[kTetherPrefixMax + 1] = "stale";
        EXPECT_EQ(ReadTetherPrefix(c.output, prefix), c.result) << c.output;
        EXPECT_STREQ(prefix, c.prefix) << c.output;
    }
}

}  // namespace
