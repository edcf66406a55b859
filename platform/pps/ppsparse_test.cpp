#include "platform/pps/ppsparse.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// One parsed line, copied out of the text for comparison.
struct Line {
    pps_status_t kind;
    std::string obj, attr, enc, value;
    bool operator==(const Line&) const = default;
};

std::string Str(const char* s) {
    return s != nullptr ? s : "<null>";
}

std::vector<Line> ParseAll(std::string text, const char* const* objnames = nullptr,
                           const char* const* attrnames = nullptr) {
    std::vector<Line> lines;
    char* cursor = text.data();
    pps_attrib_t info{};
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, objnames, attrnames, &info, 0);
        if (kind == PPS_END) break;
        lines.push_back(Line{kind, Str(info.obj_name), Str(info.attr_name), Str(info.encoding),
                             Str(info.value)});
        if (kind == PPS_ERROR) break;
    }
    return lines;
}

void PrintTo(const Line& l, std::ostream* os) {
    *os << "{" << l.kind << " obj=" << l.obj << " attr=" << l.attr << " enc=" << l.enc
        << " value=" << l.value << "}";
}

const char* N = "<null>";

TEST(PpsParse, EachKindOfLine) {
    const std::pair<const char*, Line> cases[] = {
        {"@/pps/services/radioctrl/modem0/diag/control.5\n",
         {PPS_OBJECT, "/pps/services/radioctrl/modem0/diag/control.5", N, N, N}},
        {"+@control.7.n0.p1234.u1000.g1000.g20\n",
         {PPS_OBJECT_CREATED, "control.7.n0.p1234.u1000.g1000.g20", N, N, N}},
        {"-@control.7\n", {PPS_OBJECT_DELETED, "control.7", N, N, N}},
        {"#@status\n", {PPS_OBJECT_TRUNCATED, "status", N, N, N}},
        {"msg::radiostats\n", {PPS_ATTRIBUTE, N, "msg", "", "radiostats"}},
        {"err:n:22\n", {PPS_ATTRIBUTE, N, "err", "n", "22"}},
        {"dat:json:{\"a\":1,\"b\":\"x:y\"}\n",
         {PPS_ATTRIBUTE, N, "dat", "json", "{\"a\":1,\"b\":\"x:y\"}"}},
        {"t::12:30:00\n", {PPS_ATTRIBUTE, N, "t", "", "12:30:00"}},
        {"msg::\n", {PPS_ATTRIBUTE, N, "msg", "", ""}},
        {"-ens_value\n", {PPS_ATTRIBUTE_DELETED, N, "ens_value", N, N}},
        {"id::17", {PPS_ATTRIBUTE, N, "id", "", "17"}},  // last line without a newline
        {"justtext\n", {PPS_ERROR, N, N, N, N}},
        {"name:value\n", {PPS_ERROR, N, N, N, N}},
        {":n:5\n", {PPS_ERROR, N, N, N, N}},
        {"@\n", {PPS_ERROR, N, N, N, N}},
        {"+@\n", {PPS_ERROR, N, N, N, N}},
        {"-\n", {PPS_ERROR, N, N, N, N}},
    };
    for (const auto& [text, expected] : cases) {
        std::vector<Line> lines = ParseAll(text);
        ASSERT_EQ(lines.size(), 1u) << text;
        EXPECT_EQ(lines[0], expected) << text;
    }
}

TEST(PpsParse, ObjectNameKeptAcrossAttributeLinesAndEmptyLinesSkipped) {
    std::vector<Line> lines =
        ParseAll("\n@control.5\nmsg::radiostats\n\n\nid::17\n@control.9\n-dat\n");
    std::vector<Line> expected = {
        {PPS_OBJECT, "control.5", N, N, N},
        {PPS_ATTRIBUTE, "control.5", "msg", "", "radiostats"},
        {PPS_ATTRIBUTE, "control.5", "id", "", "17"},
        {PPS_OBJECT, "control.9", N, N, N},
        {PPS_ATTRIBUTE_DELETED, "control.9", "dat", N, N},
    };
    EXPECT_EQ(lines, expected);
}

TEST(PpsParse, ParsingStopsAtTheFirstMalformedLine) {
    std::vector<Line> lines = ParseAll("@o\nmsg::a\ngarbage\nid::1\n");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].kind, PPS_ATTRIBUTE);
    EXPECT_EQ(lines[2].kind, PPS_ERROR);
}

TEST(PpsParse, EmptyTextIsTheEnd) {
    EXPECT_TRUE(ParseAll("").empty());
    EXPECT_TRUE(ParseAll("\n\n").empty());
}

TEST(PpsParse, CutsInPlaceAndReportsLineStart) {
    std::string text = "@obj\nmsg:json:[1]\n";
    char* cursor = text.data();
    pps_attrib_t info{};
    ASSERT_EQ(ppsparse(&cursor, nullptr, nullptr, &info, 0), PPS_OBJECT);
    EXPECT_EQ(info.line, text.data());
    ASSERT_EQ(ppsparse(&cursor, nullptr, nullptr, &info, 0), PPS_ATTRIBUTE);
    EXPECT_EQ(info.line, text.data() + 5);
    EXPECT_EQ(info.attr_name, text.data() + 5);  // points into the text, not a copy
    EXPECT_EQ(text[8], '\0');                    // the first colon became a terminator
    EXPECT_EQ(ppsparse(&cursor, nullptr, nullptr, &info, 0), PPS_END);
    EXPECT_EQ(ppsparse(&cursor, nullptr, nullptr, &info, 0), PPS_END);
}

TEST(PpsParse, NullArgumentsAreErrors) {
    pps_attrib_t info{};
    char* null_text = nullptr;
    EXPECT_EQ(ppsparse(&null_text, nullptr, nullptr, &info, 0), PPS_ERROR);
    EXPECT_EQ(ppsparse(nullptr, nullptr, nullptr, &info, 0), PPS_ERROR);
    std::string text = "a::b\n";
    char* cursor = text.data();
    EXPECT_EQ(ppsparse(&cursor, nullptr, nullptr, nullptr, 0), PPS_ERROR);
}

TEST(PpsParse, FiltersSkipUnlistedNames) {
    const char* objs[] = {"keep", nullptr};
    const char* attrs[] = {"id", nullptr};
    std::vector<Line> lines = ParseAll("@drop\n@keep\nmsg::x\nid::1\n-msg\n", objs, attrs);
    std::vector<Line> expected = {
        {PPS_OBJECT, "keep", N, N, N},
        {PPS_ATTRIBUTE, "keep", "id", "", "1"},
    };
    EXPECT_EQ(lines, expected);
}

}  // namespace
