// fieldtest's table of the RLC status arrays: rows per attribute with the
// object's number taken off, a column per object, "-" where an object
// lacks an attribute, and no table for anything that is not an array of
// objects.
#include "tools/fieldtest/numbered_array_table.h"

#include <gtest/gtest.h>

namespace {

TEST(NumberedArrayTable, OneColumnPerObject) {
    auto table = NumberedArrayTable(
        "rlc_ul_drb_status",
        R"([{"rb_cfg_idx1":3,"num_rst1":30},{"rb_cfg_idx2":4,"mode2":"UM","num_rst2":-1}])", 2);
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(*table,
              "  rlc_ul_drb_status (2)\n"
              "    attribute   #1  #2\n"
              "    rb_cfg_idx   3   4\n"
              "    num_rst     30  -1\n"
              "    mode         -  UM\n");
}

TEST(NumberedArrayTable, EmptyArrayAndTwoDigitNumbers) {
    EXPECT_EQ(NumberedArrayTable("rlc_dl_srb_status", "[]", 0),
              "rlc_dl_srb_status (0)\n  (none)\n");
    std::string fifteen = "[";
    for (int k = 1; k <= 15; ++k)
        fifteen += (k > 1 ? "," : "") + std::string(R"({"num_poll)") + std::to_string(k) +
                   "\":" + std::to_string(k) + "}";
    fifteen += "]";
    auto table = NumberedArrayTable("rlc_ul_srb_status", fifteen, 0);
    ASSERT_TRUE(table.has_value());
    // One row: num_poll10 to num_poll15 lose their two-digit numbers too.
    EXPECT_NE(table->find("\n  num_poll    1   2   3"), std::string::npos) << *table;
    EXPECT_NE(table->find(" 15\n"), std::string::npos) << *table;
    EXPECT_EQ(table->find("num_poll1 "), std::string::npos) << *table;
}

TEST(NumberedArrayTable, NotAnArrayOfObjects) {
    for (const char* value : {"12", "No data available!", "[1,2]", R"({"a":1})", "[{]"})
        EXPECT_FALSE(NumberedArrayTable("x", value, 0).has_value()) << value;
}

// umtsopinfo's QoS profile: one object, its members as rows in their order,
// names with spaces, parentheses and units kept whole.
TEST(NumberedArrayTable, QosProfileIsOneColumn) {
    auto table =
        NumberedArrayTable("apn1_pdp_qos",
                           R"j([{"connection id":5,"peak throughput (octets)":256000,)j"
                           R"j("Traffic Class":"Interactive class","max SDU size(octets)":1520}])j",
                           2);
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(*table,
              "  apn1_pdp_qos (1)\n"
              "    attribute                                #1\n"
              "    connection id                             5\n"
              "    peak throughput (octets)             256000\n"
              "    Traffic Class             Interactive class\n"
              "    max SDU size(octets)                   1520\n");
}

TEST(IsTabledArray, TheFourRlcArraysAndTheQosProfile) {
    for (const char* name : {"rlc_dl_srb_status", "rlc_dl_drb_status", "rlc_ul_srb_status",
                             "rlc_ul_drb_status", "apn1_pdp_qos"})
        EXPECT_TRUE(IsTabledArray(name)) << name;
    for (const char* name : {"rlc_dl_srb_num", "dch_bler", "apn1_name", ""})
        EXPECT_FALSE(IsTabledArray(name)) << name;
}

}  // namespace
