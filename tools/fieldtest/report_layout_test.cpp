// The web screen's pieces that need no server: how a report is laid out,
// the recording's CSV, the listen address and which requests are refused.
#include "tools/fieldtest/report_layout.h"

#include <gtest/gtest.h>

#include "tools/fieldtest/recording.h"
#include "tools/fieldtest/request_guard.h"
#include "tools/fieldtest/web_screen.h"

namespace fieldtest {
namespace {

using Json = nlohmann::ordered_json;

std::vector<Attribute> Parse(const std::string& text) {
    return ParseAttributes("@status_utra\n" + text);
}

TEST(ReportLayout, NoDataIsNullAndNumbersStayNumbers) {
    Json layout = ReportLayout(
        Parse("scell_rscp:n:-90.7\nrrc_state::No data available!\ndch_sir::Not supported!\n"
              "lte_rsrp::No data available!\nhspa_flag:b:true\n"));
    const Json& v = layout["values"];
    EXPECT_EQ(v["scell_rscp"], -90.7);
    EXPECT_TRUE(v["rrc_state"].is_null());
    EXPECT_TRUE(v["lte_rsrp"].is_null());
    EXPECT_EQ(v["dch_sir"], "Not supported!");
    EXPECT_EQ(v["hspa_flag"], true);
    ASSERT_EQ(layout["items"].size(), 5u);
    EXPECT_EQ(layout["items"][1], (Json{{"type", "value"}, {"name", "rrc_state"}}));
}

// Numbered families become one table at the place of their first member,
// whatever order the members come in; a lone numbered name stays a value.
TEST(ReportLayout, NumberedFamiliesBecomeTables) {
    Json layout = ReportLayout(Parse(
        "scell_sc:n:100\n"
        "aset_sc1:n:100\naset_rscp1:n:-90\naset_sc2:n:210\naset_rscp2::No data available!\n"
        "scell_uarfcn:n:10700\n"
        "aset_mcc1:n:310\n"
        "lte_apn1_Id::1\nlte_apn1_Name::ims\nlte_apn2_Id::2\nlte_apn2_Name::admin\n"
        "apn1_ipv4_addr::10.0.0.1/30\napn1_ipv6_addr::fe80::1/64\napn3_ipv4_addr::10.1.0.1/30\n"
        "squal1:n:20\nsrxlev1:n:30\nsqual2:n:21\nsrxlev2:n:31\n"
        "tx_pwr_3gpp2:n:3\nt3212:n:10\n"));
    const Json& items = layout["items"];
    std::vector<std::string> shape;
    for (const Json& item : items)
        shape.push_back(item["type"].get<std::string>() + ":" + item["name"].get<std::string>());
    EXPECT_EQ(shape, (std::vector<std::string>{"value:scell_sc", "table:aset", "value:scell_uarfcn",
                                               "table:lte_apn", "table:apn", "table:squal / srxlev",
                                               "value:tx_pwr_3gpp2", "value:t3212"}));
    EXPECT_EQ(items[1]["columns"], (Json{"1", "2"}));
    EXPECT_EQ(items[1]["rows"], (Json{{{"name", "sc"}, {"cells", {100, 210}}},
                                      {{"name", "rscp"}, {"cells", {-90, nullptr}}},
                                      {{"name", "mcc"}, {"cells", {310, nullptr}}}}));
    EXPECT_EQ(items[4]["columns"], (Json{"1", "3"}));
    EXPECT_EQ(items[4]["rows"][1],
              (Json{{"name", "ipv6_addr"}, {"cells", {"fe80::1/64", nullptr}}}));
}

// JSON arrays: a row per member with the element's number taken off, a
// column per element; members an element lacks are null.
TEST(ReportLayout, JsonArraysBecomeTables) {
    Json layout = ReportLayout(
        Parse("rlc_dl_drb_status:json:[{\"rb_cfg_idx1\":3,\"mode1\":\"AM\"},"
              "{\"rb_cfg_idx2\":4,\"mode2\":\"UM\",\"num_rst2\":1}]\n"
              "apn1_pdp_qos:json:[{\"Traffic class\":\"Interactive\",\"max SDU size\":1500}]\n"
              "dch_bler:json:[1,2,\"No data available!\"]\n"
              "empty:json:[]\n"));
    const Json& items = layout["items"];
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0]["columns"], (Json{"1", "2"}));
    EXPECT_EQ(items[0]["rows"], (Json{{{"name", "rb_cfg_idx"}, {"cells", {3, 4}}},
                                      {{"name", "mode"}, {"cells", {"AM", "UM"}}},
                                      {{"name", "num_rst"}, {"cells", {nullptr, 1}}}}));
    EXPECT_EQ(items[1]["rows"][0], (Json{{"name", "Traffic class"}, {"cells", {"Interactive"}}}));
    EXPECT_EQ(items[2]["rows"], (Json{{{"name", "value"}, {"cells", {1, 2, nullptr}}}}));
    EXPECT_EQ(items[3]["rows"], Json::array());
    // dm_stats' counts per code and version: a row each, a column per count.
    Json dm = ReportLayout(
        Parse("versions:json:{\"B179\":{\"v4\":{\"as_is\":216,\"dropped\":7,\"secondary_cell\":7}},"
              "\"B17F\":{\"v4\":{\"as_is\":0,\"dropped\":0},\"v5\":{\"as_is\":1}}}\n"));
    EXPECT_EQ(dm["items"][0]["columns"], (Json{"as_is", "dropped", "secondary_cell"}));
    EXPECT_EQ(dm["items"][0]["rows"],
              (Json{{{"name", "B179 v4"}, {"cells", {216, 7, 7}}},
                    {{"name", "B17F v4"}, {"cells", {0, 0, nullptr}}},
                    {{"name", "B17F v5"}, {"cells", {1, nullptr, nullptr}}}}));
    // A JSON value that does not parse stays text.
    Json bad = ReportLayout(Parse("x:json:[1,\n"));
    EXPECT_EQ(bad["values"]["x"], "[1,");
}

// An object can hold any bytes; the page gets them replaced, and the server
// goes on (found by fuzzing: the JSON text threw).
TEST(ReportLayout, BytesThatAreNotUtf8AreReplaced) {
    Json layout = ReportLayout(Parse("apn1_dns_ip_addr::10.168.\xb7.1,\n"));
    std::string text;
    ASSERT_NO_THROW(text = JsonText(layout));
    EXPECT_NE(text.find("10.168.\xef\xbf\xbd.1,"), std::string::npos) << text;
}

TEST(Recording, CsvHoldsSingleValuesQuotedWhereNeeded) {
    Recording recording;
    recording.Add(1700000000123, "lteopinfo",
                  Json{{"lte_rsrp", -95},
                       {"lte_pci", nullptr},
                       {"dns", "1.1.1.1,8.8.8.8"},
                       {"name", "say \"hi\""},
                       {"rlc", Json::array({1})}});
    EXPECT_EQ(recording.Csv(),
              "time,report,attribute,value\n"
              "1700000000.123,lteopinfo,lte_rsrp,-95\n"
              "1700000000.123,lteopinfo,dns,\"1.1.1.1,8.8.8.8\"\n"
              "1700000000.123,lteopinfo,name,\"say \"\"hi\"\"\"\n");
}

// A download is of the rows there when it began, in slices.
TEST(Recording, SlicesWalkTheSnapshot) {
    Recording recording;
    for (int i = 0; i < 5; ++i) recording.Add(1000 * i, "r", Json{{"v", i}});
    Recording::Span span = recording.Snapshot();
    EXPECT_EQ(recording.CsvSlice(&span, 3), "0.000,r,v,0\n1.000,r,v,1\n2.000,r,v,2\n");
    recording.Add(9000, "r", Json{{"v", 9}});
    EXPECT_EQ(recording.CsvSlice(&span, 3), "3.000,r,v,3\n4.000,r,v,4\n");
    EXPECT_EQ(recording.CsvSlice(&span, 3), "");
}

TEST(RequestGuard, RefusesForeignHostsOriginsAndTypes) {
    struct Case {
        RequestFacts request;
        std::string listen_host;
        int status;
    };
    const std::string json = "application/json";
    const Case cases[] = {
        {{"GET", "127.0.0.1:8080", false, "", ""}, "127.0.0.1", 0},
        {{"GET", "LOCALHOST:8080", false, "", ""}, "127.0.0.1", 0},
        {{"GET", "127.0.0.1:8081", false, "", ""}, "127.0.0.1", 421},
        {{"GET", "127.0.0.1", false, "", ""}, "127.0.0.1", 421},
        {{"GET", "", false, "", ""}, "127.0.0.1", 421},
        {{"GET", "10.1.2.3:8080", false, "", ""}, "127.0.0.1", 421},
        {{"GET", "10.1.2.3:8080", false, "", ""}, "0.0.0.0", 0},
        {{"GET", "[::1]:8080", false, "", ""}, "0.0.0.0", 0},
        {{"GET", "rebind.example:8080", false, "", ""}, "0.0.0.0", 421},
        {{"POST", "127.0.0.1:8080", false, "", json}, "127.0.0.1", 0},
        {{"POST", "127.0.0.1:8080", true, "http://127.0.0.1:8080", json + "; charset=utf-8"},
         "127.0.0.1",
         0},
        {{"POST", "127.0.0.1:8080", true, "http://localhost:8080", json}, "127.0.0.1", 403},
        {{"DELETE", "127.0.0.1:8080", true, "http://evil.example", ""}, "127.0.0.1", 403},
        {{"PUT", "127.0.0.1:8080", false, "", ""}, "127.0.0.1", 415},
        {{"POST", "127.0.0.1:8080", false, "", "application/jsonp"}, "127.0.0.1", 415},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CheckRequest(c.request, c.listen_host, 8080).status, c.status)
            << c.request.method << " Host " << c.request.host << " Origin " << c.request.origin
            << " type " << c.request.content_type << " on " << c.listen_host;
    }
}

TEST(ListenAddress, ParsesAddressAndPort) {
    struct Case {
        const char* text;
        bool ok;
        const char* host;
        int port;
    };
    const Case cases[] = {
        {"127.0.0.1:8080", true, "127.0.0.1", 8080},
        {"0.0.0.0:1", true, "0.0.0.0", 1},
        {":9000", true, "127.0.0.1", 9000},
        {"9001", true, "127.0.0.1", 9001},
        {"host:", false, "", 0},
        {"1.2.3.4:65536", false, "", 0},
        {"1.2.3.4:80x", false, "", 0},
        {"1.2.3.4:0", false, "", 0},
    };
    for (const Case& c : cases) {
        std::string host = "127.0.0.1";
        int port = 0;
        EXPECT_EQ(ParseListenAddress(c.text, &host, &port), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(host, c.host) << c.text;
            EXPECT_EQ(port, c.port) << c.text;
        }
    }
}

}  // namespace
}  // namespace fieldtest
