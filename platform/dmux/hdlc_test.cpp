#include "platform/dmux/hdlc.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "testsupport/diag_capture_builder.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Collected {
    std::vector<Bytes> frames;
    dmux::HdlcStats stats;
};

Collected Deframe(const Bytes& stream, size_t piece = 0) {
    dmux::HdlcDeframer deframer;
    Collected out;
    auto sink = [&](std::span<const uint8_t> body) {
        out.frames.emplace_back(body.begin(), body.end());
    };
    if (piece == 0) piece = stream.size() == 0 ? 1 : stream.size();
    for (size_t at = 0; at < stream.size(); at += piece)
        deframer.Feed(stream.data() + at, std::min(piece, stream.size() - at), sink);
    deframer.Finish();
    out.stats = deframer.stats();
    return out;
}

TEST(Crc16X25, CheckValueOf123456789) {
    const std::string check = "123456789";
    EXPECT_EQ(dmux::Crc16X25(reinterpret_cast<const uint8_t*>(check.data()), check.size()), 0x906E);
}

// Each implementation this CPU can run, not only the one it picks.
TEST(Crc16X25, AgreesWithBitwiseCrcAtEveryLength) {
    for (dmux::Crc16Function crc : dmux::Crc16X25Implementations()) {
        Bytes data;
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(crc(data.data(), data.size()), rt::test::DiagCrc(data)) << i;
            data.push_back(static_cast<uint8_t>(i * 37 + 11));
        }
    }
    EXPECT_EQ(dmux::Crc16X25(nullptr, 0), rt::test::DiagCrc({}));
}

// Byte-at-a-time readings of a frame, for the implementations to agree with.
dmux::FrameScan ReferenceScan(const uint8_t* begin, const uint8_t* end) {
    const uint8_t* stop = begin;
    while (stop != end && *stop != 0x7E && *stop != 0x7D) ++stop;
    const size_t length = stop - begin;
    bool checks = stop != end && *stop == 0x7E && length >= 3 && length <= dmux::kMaxHdlcFrame &&
                  rt::test::DiagCrc(Bytes(begin, stop - 2)) == (stop[-2] | stop[-1] << 8);
    return {stop, checks};
}

std::pair<dmux::UnescapedFrame, Bytes> ReferenceUnescape(const uint8_t* begin, const uint8_t* end) {
    Bytes out;
    auto put = [&](uint8_t byte) {
        if (out.size() <= dmux::kMaxHdlcFrame) out.push_back(byte);
    };
    auto fault = [&](dmux::FrameFault otherwise) {
        return out.size() > dmux::kMaxHdlcFrame ? dmux::FrameFault::kOversize : otherwise;
    };
    for (const uint8_t* p = begin;; ++p) {
        if (p == end || *p == 0x7E) return {{p, out.size(), fault(dmux::FrameFault::kNone)}, out};
        if (*p != 0x7D) {
            put(*p);
        } else if (p + 1 == end || p[1] == 0x7E) {
            put(0);  // a stray escape counts one byte towards the limit
            return {{p + 1, 0, fault(dmux::FrameFault::kStrayEscape)}, {}};
        } else {
            put(*++p ^ 0x20);
        }
    }
}

// Every implementation of the frame scan and of the unescaping that this
// CPU can run reads as the references do: good and bad frames of every
// length around the 16- and 64-byte steps, escapes (doubled ones too) on
// and next to the step boundaries, stray escapes, no flag, oversize frames.
TEST(HdlcFrameScan, EveryImplementationReadsAsByteAtATime) {
    std::vector<Bytes> streams;
    uint32_t seed = 7;
    auto random = [&] {
        return seed = seed * 1103515245 + 12345, static_cast<uint8_t>(seed >> 16);
    };
    for (size_t length : {0, 1, 2, 3, 14, 15, 16, 17, 62, 63, 64, 65, 66, 127, 128, 129, 200}) {
        Bytes body(length);
        for (uint8_t& byte : body) byte = random() | 0x80;  // no 0x7D or 0x7E of its own
        streams.push_back(rt::test::DiagHdlcFrame(body));
        for (size_t at : {size_t{0}, length / 2, size_t{61}, size_t{62}, size_t{63}, size_t{64}}) {
            if (at >= length) continue;
            Bytes escaped = body;
            escaped[at] = 0x7E;  // sent as 7D 5E
            streams.push_back(rt::test::DiagHdlcFrame(escaped));
            Bytes bad = streams.back();
            bad[at] ^= 0x01;
            streams.push_back(bad);
            Bytes doubled = body;  // 7D 7D: an escape escaping another
            doubled.insert(doubled.begin() + at, {0x7D, 0x7D});
            doubled.push_back(0x7E);
            streams.push_back(doubled);
            Bytes stray(body.begin(), body.begin() + at);
            stray.insert(stray.end(), {0x7D, 0x7E});
            streams.push_back(stray);
            streams.push_back(Bytes(stray.begin(), stray.end() - 1));  // no flag after it
        }
    }
    for (int i = 0; i < 200; ++i) {  // bytes drawn mostly from the framing's own
        Bytes noise(random() % 150);
        for (uint8_t& byte : noise)
            byte = std::array<uint8_t, 4>{0x7D, 0x7E, 0x5E, random()}[random() % 4];
        streams.push_back(noise);
    }
    for (size_t extra : {0, 1, 2}) {  // around the size limit, escapes near its end
        Bytes big(dmux::kMaxHdlcFrame - 2 + extra, 0x11);
        big.insert(big.end() - 3, {0x7D, 0x5D});
        big.push_back(0x7E);
        streams.push_back(big);
        big.insert(big.end() - 1, 0x7D);
        streams.push_back(big);
    }

    Bytes out(dmux::kUnescapeRoom);
    for (size_t i = 0; i < streams.size(); ++i) {
        const uint8_t* begin = streams[i].data();
        const uint8_t* end = begin + streams[i].size();
        dmux::FrameScan want_scan = ReferenceScan(begin, end);
        for (dmux::FrameScanFunction scan : dmux::FrameScanImplementations()) {
            dmux::FrameScan got = scan(begin, end);
            EXPECT_EQ(got.stop - begin, want_scan.stop - begin) << "stream " << i;
            EXPECT_EQ(got.checks, want_scan.checks) << "stream " << i;
        }
        auto [want, want_bytes] = ReferenceUnescape(begin, end);
        for (dmux::FrameUnescapeFunction unescape : dmux::FrameUnescapeImplementations()) {
            dmux::UnescapedFrame got = unescape(begin, end, out.data());
            EXPECT_EQ(got.stop - begin, want.stop - begin) << "stream " << i;
            ASSERT_EQ(got.fault, want.fault) << "stream " << i;
            if (want.fault == dmux::FrameFault::kNone) {
                EXPECT_EQ(Bytes(out.begin(), out.begin() + got.length), want_bytes)
                    << "stream " << i;
            }
        }
    }
}

TEST(HdlcEncode, EscapesFlagAndEscapeBytes) {
    // body 7E 01 7D -> 7D 5E 01 7D 5D, then the CRC (escaped too) and the flag
    Bytes body = {0x7E, 0x01, 0x7D};
    Bytes framed = dmux::HdlcEncode(body);
    EXPECT_EQ(framed, rt::test::DiagHdlcFrame(body));
    ASSERT_GE(framed.size(), 6u);
    EXPECT_EQ(Bytes(framed.begin(), framed.begin() + 5), (Bytes{0x7D, 0x5E, 0x01, 0x7D, 0x5D}));
    EXPECT_EQ(framed.back(), 0x7E);
}

TEST(HdlcDeframer, RoundTripsFramesWithEscapesWhateverThePieceSize) {
    std::vector<Bytes> bodies = {
        {0x10, 0x00, 0x7E, 0x7D}, {0x7D}, {0x7E, 0x7E, 0x7E}, Bytes(1000, 0x7D)};
    Bytes stream;
    for (const auto& b : bodies) dmux::HdlcEncode(b, &stream);
    for (size_t piece : {0, 1, 2, 3, 7, 64}) {
        auto got = Deframe(stream, piece);
        EXPECT_EQ(got.frames, bodies) << "piece " << piece;
        EXPECT_EQ(got.stats.good, bodies.size());
        EXPECT_EQ(got.stats.bad(), 0u);
    }
}

// Faulty streams, fed whole and in pieces: the frames delivered and every
// counter (good, bad CRC, too short, stray escape, oversize, truncated).
TEST(HdlcDeframer, FaultsAreCountedAndOnlyGoodFramesDelivered) {
    using rt::test::DiagHdlcFrame;
    auto join = [](std::initializer_list<Bytes> parts) {
        Bytes out;
        for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
        return out;
    };
    Bytes broken = DiagHdlcFrame({0x04, 0x05});
    broken[0] ^= 0x01;
    Bytes cut = DiagHdlcFrame({0x10, 0x00, 0x20, 0x00, 0x01, 0x02});
    cut.resize(4);  // no flag: it runs into the next frame, and both are one bad frame
    Bytes unflagged = DiagHdlcFrame({0x03, 0x04, 0x05});
    unflagged.pop_back();
    struct Case {
        const char* name;
        Bytes stream;
        std::vector<Bytes> frames;
        std::array<uint64_t, 6> counts;
    };
    const Case cases[] = {
        {"bad crc",
         join({DiagHdlcFrame({1, 2, 3}), broken, DiagHdlcFrame({1, 2, 3})}),
         {{1, 2, 3}, {1, 2, 3}},
         {2, 1, 0, 0, 0, 0}},
        {"cut short",
         join({cut, DiagHdlcFrame({0xAA, 0xBB}), DiagHdlcFrame({0xCC, 0xDD})}),
         {{0xCC, 0xDD}},
         {1, 1, 0, 0, 0, 0}},
        {"no flag at the end",
         join({DiagHdlcFrame({1, 2}), unflagged}),
         {{1, 2}},
         {1, 0, 0, 0, 0, 1}},
        // 01 02 03 7D 7E: the escape has nothing to escape.
        {"stray escape",
         join({{1, 2, 3, 0x7D, 0x7E}, DiagHdlcFrame({9})}),
         {{9}},
         {1, 0, 0, 1, 0, 0}},
        // A leading flag and two flags in a row are empty frames, not counted;
        // garbage is a bad frame, one byte between flags a short one.
        {"garbage",
         join({{0x7E},
               DiagHdlcFrame({1}),
               {0x13, 0x37, 0xC0, 0xFF, 0xEE, 0x7E, 0x7E, 0x55, 0x7E},
               DiagHdlcFrame({2})}),
         {{1}, {2}},
         {2, 1, 1, 0, 0, 0}},
        {"oversize",
         join({Bytes(dmux::kMaxHdlcFrame + 10, 0x11), {0x7E}, DiagHdlcFrame({0x42})}),
         {{0x42}},
         {1, 0, 0, 0, 1, 0}},
    };
    for (const Case& c : cases) {
        for (size_t piece : {0, 1, 3, 4096}) {
            Collected got = Deframe(c.stream, piece);
            const dmux::HdlcStats& s = got.stats;
            EXPECT_EQ(got.frames, c.frames) << c.name << ", piece " << piece;
            EXPECT_EQ((std::array<uint64_t, 6>{s.good, s.bad_crc, s.too_short, s.stray_escape,
                                               s.oversize, s.truncated}),
                      c.counts)
                << c.name << ", piece " << piece;
        }
    }
}

TEST(HdlcDeframer, EndlessGarbageWithoutFlagDoesNotGrowWithoutBound) {
    dmux::HdlcDeframer deframer;
    Bytes junk(100000, 0x33);
    int frames = 0;
    for (int i = 0; i < 10; ++i) deframer.Feed(junk.data(), junk.size(), [&](auto) { ++frames; });
    Bytes flag = {0x7E};
    deframer.Feed(flag.data(), 1, [&](auto) { ++frames; });
    EXPECT_EQ(frames, 0);
    EXPECT_EQ(deframer.stats().oversize, 1u);
}

}  // namespace
