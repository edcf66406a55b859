// Requests as the broker hands them to a server, well formed or not.
#include "tools/devsim/request.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct NotARequestCase {
    const char* name;
    std::string text;
};

class NotARequestTest : public ::testing::TestWithParam<NotARequestCase> {};

TEST_P(NotARequestTest, Skipped) {
    EXPECT_FALSE(devsim::ParseRequest(GetParam().text).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, NotARequestTest,
    ::testing::Values(NotARequestCase{"connect_line", "+@control.5.n0.p123.u1000.g1000\n"},
                      NotARequestCase{"disconnect_line", "-@control.5\n"},
                      NotARequestCase{"no_client_id", "@control\nmsg::x\n"},
                      NotARequestCase{"client_id_not_digits", "@control.5x\nmsg::x\n"},
                      NotARequestCase{"client_id_too_big",
                                      "@control.99999999999999999999999\nmsg::x\n"},
                      NotARequestCase{"object_line_only", "@control.5\n"},
                      NotARequestCase{"empty", ""}, NotARequestCase{"garbage", "\xff\xfe:::\n@\n"},
                      NotARequestCase{"attributes_without_object", "msg::x\nid::1\n"},
                      NotARequestCase{"cut_short", "@contr"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RequestTest, StopsAtTheFirstBadLineOrNul) {
    std::string text = std::string("@control.2\nmsg::a\nnot a line\nid::9\n");
    std::optional<devsim::Request> request = devsim::ParseRequest(text);
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->msg, "a");
    EXPECT_EQ(request->id, "");
    std::string with_nul = std::string("@control.2\nmsg::a\n\0id::9\n", 24);
    request = devsim::ParseRequest(with_nul);
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->id, "");
}

TEST(RequestTest, OversizedMessageIsRead) {
    std::string big(70000, 'v');
    std::optional<devsim::Request> request =
        devsim::ParseRequest("@control.1\nmsg::get_leaf_node\ndat::" + big + "\n");
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->dat.size(), big.size());
}

}  // namespace
