// Every real capture beside the repository, deframed and parsed: the frame,
// log-packet and per-code counts must be exactly those the captures' README
// gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/dmux/diag_stream.h"
#include "testsupport/child_process.h"

namespace {

struct CaptureCounts {
    const char* file;
    size_t bytes;
    uint64_t good;
    uint64_t bad;
    uint64_t log_packets;
    uint64_t wrapped;
    uint64_t markers;
    const char* codes;  // the README's codes of interest, "code:count" in hex:decimal
};
// Shown by name in test listings instead of as raw bytes.
void PrintTo(const CaptureCounts& c, std::ostream* os) {
    *os << c.file;
}

const CaptureCounts kCaptures[] = {
    {"mi-core_ATT-iphone.mi2log", 1040390, 16485, 0, 1127, 0, 0,
     "4116:1 7130:7 7131:2 B0C2:1 B179:11 B0EE:5 B17F:1 B081:2 B091:2"},
    {"mi-core_ATT.mi2log", 524026, 1808, 0, 1808, 0, 0, "B0C2:2 B179:223 B0EE:6"},
    {"mi-core_CMCC.mi2log", 317107, 5500, 1, 5483, 0, 0,
     "7135:13 7136:3 7130:68 7131:55 B0C2:62 B0EE:155 713A:27"},
    {"mi-core_Mi10_20201116_123435.mi2log", 104565, 927, 3, 927, 927, 0, "B0C2:30 B0EE:49"},
    {"mi-core_Mi10_20201116_195935.mi2log", 103999, 1320, 0, 1320, 1320, 0, "B0C2:71 B0EE:116"},
    {"mi-core_Pixel5_20230212_113941.qmdl", 198464, 631, 0, 629, 623, 2, "B179:3 B087:5"},
    {"mi-core_attach_sample.mi2log", 412525, 5058, 0, 5058, 0, 0, "B0C2:118 B0EE:493"},
    {"mi-core_mobility_sample.mi2log", 484114, 8183, 0, 8183, 0, 0, "B0C2:310 B0EE:541"},
    {"mi-core_offline_log_example.mi2log", 1040522, 13616, 2, 1304, 0, 0, "B179:15 B087:1"},
    {"mi-core_qmdl_example.qmdl", 18354, 345, 0, 336, 0, 0, "7130:17 7131:11 B0C2:12 B0EE:41"},
    {"mi-core_sprint.mi2log", 2773379, 47106, 1, 47087, 0, 0,
     "4116:14011 7130:520 7131:11 B0C2:840 B0EE:2392"},
    {"mi-core_tmobile.mi2log", 523925, 2167, 0, 2167, 0, 0,
     "7130:2 7131:1 B0C2:3 B179:237 B0EE:11"},
    {"mi-core_twilio_nb_open_3.mi2log", 56676, 220, 0, 220, 0, 0,
     "7130:4 7131:1 B0C2:1 B0EE:4 B081:1 B091:1 B087:7 B097:6"},
    {"mi-core_volte_sample.mi2log", 248179, 3597, 0, 3597, 0, 0, "B0C2:20 B0EE:50"},
    {"rayhunter-traces_1749222138-goodsim.qmdl", 132665, 1891, 0, 1891, 0, 0, ""},
};

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class CaptureCountsTest : public ::testing::TestWithParam<CaptureCounts> {};

TEST_P(CaptureCountsTest, FrameAndPacketCountsMatchTheReadme) {
    if (!rt::test::HaveCaptures())
        GTEST_SKIP() << "captures folder " << rt::test::CapturesDir() << " is absent";
    const CaptureCounts& expected = GetParam();
    auto bytes = ReadAll(rt::test::CapturesDir() + "/" + expected.file);
    ASSERT_EQ(bytes.size(), expected.bytes) << expected.file;

    std::map<uint16_t, uint64_t> codes;
    dmux::DiagStream stream(nullptr, nullptr, nullptr);
    stream.SetObserver([&](const dmux::DiagFrame& frame) { ++codes[frame.log_code]; });
    // Fed in uneven pieces so that frames straddle the pieces.
    size_t piece = 4093;
    for (size_t at = 0; at < bytes.size(); at += piece)
        stream.Feed(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
    stream.Finish();

    EXPECT_EQ(stream.frames().good, expected.good);
    EXPECT_EQ(stream.frames().bad(), expected.bad);
    EXPECT_EQ(stream.stats().log_packets, expected.log_packets);
    EXPECT_EQ(stream.stats().wrapped, expected.wrapped);
    EXPECT_EQ(stream.stats().markers, expected.markers);
    EXPECT_EQ(stream.stats().malformed, 0u);
    std::istringstream wanted(expected.codes);
    unsigned code = 0;
    uint64_t count = 0;
    char colon = 0;
    size_t checked = 0;
    for (; wanted >> std::hex >> code >> colon >> std::dec >> count; ++checked)
        EXPECT_EQ(codes[static_cast<uint16_t>(code)], count) << std::hex << "code 0x" << code;
    const std::string listed = expected.codes;
    EXPECT_EQ(checked, static_cast<size_t>(std::count(listed.begin(), listed.end(), ':')));
}

INSTANTIATE_TEST_SUITE_P(AllCaptures, CaptureCountsTest, ::testing::ValuesIn(kCaptures),
                         [](const auto& info) {
                             std::string name = info.param.file;
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
