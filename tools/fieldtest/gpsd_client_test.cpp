// gpsd's lines as the client reads them: a fix, no fix, or not a position
// at all, whatever the types of the members (a line of another shape must
// never throw out of the client's thread).
#include "tools/fieldtest/gpsd_client.h"

#include <gtest/gtest.h>

namespace {

TEST(PositionFromGpsdLine, FixNoFixOrNothing) {
    struct Case {
        const char* line;
        bool position;  // a TPV: a fix or no fix
        bool known;
    };
    const Case cases[] = {
        {R"({"class":"TPV","mode":3,"lat":45.5,"lon":-73.25,"time":"2024-06-10T12:00:01.000Z"})",
         true, true},
        {R"({"class":"TPV","mode":2,"lat":1,"lon":2})", true, true},
        {R"({"class":"TPV","mode":1,"lat":1,"lon":2})", true, false},
        {R"({"class":"TPV","mode":"3","lat":1,"lon":2})", true, false},
        {R"({"class":"TPV","mode":3,"lat":"1","lon":2})", true, false},
        {R"({"class":"TPV","mode":3})", true, false},
        {R"({"class":"SKY","mode":3,"lat":1,"lon":2})", false, false},
        {R"({"class":1})", false, false},
        {R"({"class":["TPV"]})", false, false},
        {R"(["TPV"])", false, false},
        {"not json", false, false},
        {"", false, false},
    };
    for (const Case& c : cases) {
        std::optional<fieldtest::Position> got;
        ASSERT_NO_THROW(got = fieldtest::PositionFromGpsdLine(c.line)) << c.line;
        ASSERT_EQ(got.has_value(), c.position) << c.line;
        if (got) {
            EXPECT_EQ(got->known, c.known) << c.line;
        }
    }
    auto fix = fieldtest::PositionFromGpsdLine(cases[0].line);
    ASSERT_TRUE(fix);
    EXPECT_DOUBLE_EQ(fix->latitude, 45.5);
    EXPECT_DOUBLE_EQ(fix->longitude, -73.25);
    EXPECT_EQ(fix->fix_time, "2024-06-10T12:00:01.000Z");
}

}  // namespace
