// The snapshot store: real-shaped packets in through the DM callback,
// snapshot bytes out, including the cases where a count, a list position or
// a length runs past what the packet or the area holds.
#include "diaglog/log_snapshot_store.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/qnx/slogf.h"
#include "testsupport/diag_capture_builder.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A log record of `total` bytes: header for `code`, payload bytes counting
// up from one that depends on the length, so packets of two lengths differ
// in every byte, not only in their length word.
Bytes Packet(uint16_t code, size_t total) {
    Bytes payload;
    for (size_t i = 12; i < total; ++i) payload.push_back(static_cast<uint8_t>(total + (i - 12)));
    return rt::test::DiagLogRecord(code, payload, 0x1234);
}

void Deliver(uint16_t code, const Bytes& packet) {
    DM_recv_log_packet_cb(nullptr, code, packet.data(), static_cast<uint32_t>(packet.size()));
}

Bytes SnapshotOf(uint16_t code) {
    SnapshotView view = g_log_snapshot_store.View(code);
    auto s = view.bytes();
    return Bytes(s.begin(), s.end());
}

class LogSnapshotStoreTest : public ::testing::Test {
  protected:
    void SetUp() override { g_log_snapshot_store.Reset(); }
    void TearDown() override { g_log_snapshot_store.Reset(); }
};

// A fixed-size snapshot keeps the first bytes of each packet, longer and
// shorter in turn: nothing of an earlier, longer packet stays.
TEST_F(LogSnapshotStoreTest, FixedSizeKeepsTheFirstBytesAndZeroesPastAShortPacket) {
    for (size_t length : {87, 30, 50, 20, 20, 100}) {
        Bytes packet = Packet(0x4110, length);
        Deliver(0x4110, packet);
        Bytes s = SnapshotOf(0x4110);
        size_t kept = std::min<size_t>(length, 87);
        EXPECT_EQ(Bytes(s.begin(), s.begin() + kept), Bytes(packet.begin(), packet.begin() + kept));
        EXPECT_EQ(Bytes(s.begin() + kept, s.end()), Bytes(87 - kept, 0)) << length;
    }
}

TEST_F(LogSnapshotStoreTest, UnknownAndUnstoredCodesChangeNothing) {
    SlogCapture log;
    Deliver(0x4221, Packet(0x4221, 40));
    Deliver(0x1234, Packet(0x1234, 40));
    DM_recv_log_packet_cb(nullptr, 0x14125, Packet(0x4125, 13).data(), 13);  // not a 16-bit code
    for (const auto& entry : kFixedSnapshotSizes) EXPECT_EQ(SnapshotOf(entry.code)[0], 0);
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(LogSnapshotStoreTest, NullBufferIsLogged) {
    SlogCapture log;
    DM_recv_log_packet_cb(nullptr, 0x4125, nullptr, 13);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text,
              "         DM_recv_log_packet_cb : Tavora:  Callback Called with null buffer !!!");
    EXPECT_EQ(log.lines()[0].opcode, 10000);
    EXPECT_EQ(log.lines()[0].severity, 6);
}

// The RLC configuration's list starts after rb_count, at packet byte
// P + 1 where P = 24 + 3 * byte 21: cut to the list area, zero past the
// packet, and empty (rb_count 0) when P is past the packet's end.
struct RlcListCase {
    uint16_t code;
    size_t packet_size;
    uint8_t byte21;
    size_t area;
};

TEST_F(LogSnapshotStoreTest, RlcConfigListPosition) {
    const RlcListCase cases[] = {
        {0xB091, 40, 2, 210},    // P = 30: 9 list bytes, the rest zero
        {0xB081, 400, 0, 135},   // P = 24: the list is cut to the area
        {0xB081, 30, 200, 135},  // P = 624, far past 30 bytes
    };
    for (const RlcListCase& c : cases) {
        SCOPED_TRACE(c.packet_size);
        Bytes packet = Packet(c.code, c.packet_size);
        const size_t p = 24 + 3 * c.byte21;
        packet[21] = c.byte21;
        if (p < packet.size()) packet[p] = 3;
        Deliver(c.code, packet);
        Bytes list_bytes(c.area, 0);
        for (size_t i = 0; i < c.area && p + 1 + i < packet.size(); ++i)
            list_bytes[i] = packet[p + 1 + i];
        std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
        RlcConfigSnapshot* config = g_log_snapshot_store.RlcConfig(c.code);
        EXPECT_EQ(Bytes(config->bytes, config->bytes + 22),
                  Bytes(packet.begin(), packet.begin() + 22));
        EXPECT_EQ(config->rb_count(), p < packet.size() ? 3 : 0);
        auto list = config->rb_list();
        EXPECT_EQ(Bytes(list.begin(), list.end()), list_bytes);
        EXPECT_EQ(Bytes(config->rb_cfg_idx_table, config->rb_cfg_idx_table + 15), Bytes(15, 0xFF));
        EXPECT_EQ(Bytes(config->rb_kind_table, config->rb_kind_table + 15), Bytes(15, 0xFF));
    }
}

TEST_F(LogSnapshotStoreTest, RlcConfigWithLengthWordZeroStillResetsTheTables) {
    Bytes packet = Packet(0xB081, 40);
    packet[21] = 2;  // P = 30
    packet[30] = 2;
    Deliver(0xB081, packet);
    {
        std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
        RlcConfigSnapshot* c = g_log_snapshot_store.RlcConfig(0xB081);
        c->rb_cfg_idx_table[0] = 7;  // as the RLC report fills them
        c->rb_kind_table[0] = 1;
    }
    Bytes empty = Packet(0xB081, 40);
    empty[0] = empty[1] = 0;
    empty[21] = 2;
    empty[30] = 9;
    Deliver(0xB081, empty);
    std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
    RlcConfigSnapshot* c = g_log_snapshot_store.RlcConfig(0xB081);
    EXPECT_EQ(c->bytes[0] | c->bytes[1], 0);
    EXPECT_EQ(c->rb_count(), 2);  // the list is left as it was
    EXPECT_EQ(c->rb_cfg_idx_table[0], 0xFF);
    EXPECT_EQ(c->rb_kind_table[0], 0xFF);
}

// 0xB097: header 25 bytes, count at byte 20, entries of 126 bytes at 25.
Bytes StatsPacket(uint8_t count, size_t entries_bytes, uint8_t fill) {
    Bytes packet = Packet(0xB097, 25);
    packet[20] = count;
    packet.insert(packet.end(), entries_bytes, fill);
    packet[0] = static_cast<uint8_t>(packet.size());
    packet[1] = static_cast<uint8_t>(packet.size() >> 8);
    return packet;
}

TEST_F(LogSnapshotStoreTest, RlcStatsEntriesAreReplacedAndKept) {
    Deliver(0xB097, StatsPacket(3, 3 * 126, 0xA1));
    std::shared_ptr<const uint8_t[]> first;
    {
        std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
        RlcStatsSnapshot* s = g_log_snapshot_store.RlcStats(0xB097);
        EXPECT_EQ(s->count(), 3);
        ASSERT_EQ(s->entries_size, 378u);
        ASSERT_NE(s->rlc_stats_entries, nullptr);
        EXPECT_EQ(s->rlc_stats_entries[377], 0xA1);
        first = s->rlc_stats_entries;  // a reader still walking the old array
    }
    Deliver(0xB097, StatsPacket(0, 0, 0));
    {
        std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
        RlcStatsSnapshot* s = g_log_snapshot_store.RlcStats(0xB097);
        EXPECT_EQ(s->entries_size, 0u);
        EXPECT_EQ(s->rlc_stats_entries, nullptr);
    }
    EXPECT_EQ(first[0], 0xA1);  // still readable by whoever holds it

    Deliver(0xB097, StatsPacket(1, 126, 0xB2));
    Bytes zero_length = StatsPacket(2, 252, 0xC3);
    zero_length[0] = zero_length[1] = 0;
    Deliver(0xB097, zero_length);
    std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
    RlcStatsSnapshot* s = g_log_snapshot_store.RlcStats(0xB097);
    EXPECT_EQ(s->count(), 2);          // the header was copied
    ASSERT_EQ(s->entries_size, 126u);  // the array of the packet before was kept
    EXPECT_EQ(s->rlc_stats_entries[0], 0xB2);
}

TEST_F(LogSnapshotStoreTest, RlcStatsCountPastThePacketIsCutAndZeroFilled) {
    Deliver(0xB087, Packet(0xB087, 15));  // too short for the count byte: nothing
    EXPECT_EQ(g_log_snapshot_store.RlcStatsCopy(0xB087).count(), 0);
    EXPECT_EQ(g_log_snapshot_store.RlcStatsCopy(0xB087).Entry(0).size(), 0u);
    // count 200 says 200 * 182 bytes; the packet holds 2 entries' worth.
    Bytes packet = Packet(0xB087, 29);
    packet[20] = 200;
    packet.insert(packet.end(), 2 * 182, 0x5A);
    Deliver(0xB087, packet);
    std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
    RlcStatsSnapshot* s = g_log_snapshot_store.RlcStats(0xB087);
    ASSERT_EQ(s->entries_size, 200u * 182u);
    EXPECT_EQ(s->rlc_stats_entries[2 * 182 - 1], 0x5A);
    EXPECT_EQ(s->rlc_stats_entries[2 * 182], 0);
    EXPECT_EQ(s->rlc_stats_entries[200 * 182 - 1], 0);
}

TEST_F(LogSnapshotStoreTest, RlcCopiesReadOnlyTheirOwnBytes) {
    // Before any packet, and for a code that is no RLC code: empty copies.
    EXPECT_FALSE(g_log_snapshot_store.RlcConfigCopy(0xB091).has_packet());
    EXPECT_EQ(g_log_snapshot_store.RlcConfigCopy(0x4125).rb_list_size(), 0u);
    EXPECT_EQ(g_log_snapshot_store.RlcStatsCopy(0xB081).Entry(0).size(), 0u);

    for (auto [code, area] : {std::pair<uint16_t, size_t>{0xB081, 135}, {0xB091, 210}}) {
        Deliver(code, Packet(code, 300));
        RlcConfigView config = g_log_snapshot_store.RlcConfigCopy(code);
        EXPECT_TRUE(config.has_packet());
        EXPECT_EQ(config.rb_list_size(), area);
        // An entry's fields are read from its position to the list's end, no further.
        EXPECT_EQ(config.ListEntryAt(area - 1).size(), 1u);
        EXPECT_EQ(config.ListEntryAt(area).size(), 0u);
        EXPECT_EQ(config.ListEntryAt(area - 1).Read(log_layout::RlcConfig::kEntryCfgIdx),
                  std::nullopt);
        EXPECT_EQ(config.tables().kind[0], 0xFF);
    }

    Deliver(0xB097, StatsPacket(3, 3 * 126, 0xA1));
    RlcStatsView stats = g_log_snapshot_store.RlcStatsCopy(0xB097);
    Deliver(0xB097, StatsPacket(0, 0, 0));  // the copy keeps its share of the array
    EXPECT_EQ(stats.count(), 3);
    EXPECT_EQ(stats.Entry(2).size(), 126u);
    EXPECT_EQ(stats.Entry(2).Get(rt::Field<uint8_t>{125}), 0xA1);
    EXPECT_EQ(stats.Entry(3).size(), 0u);
    EXPECT_EQ(stats.Entry(SIZE_MAX).size(), 0u);
}

TEST_F(LogSnapshotStoreTest, FreeRlcStatsEntriesNullsBothArrays) {
    Deliver(0xB097, StatsPacket(1, 126, 1));
    Bytes dl = Packet(0xB087, 29);
    dl[20] = 1;
    dl.insert(dl.end(), 182, 2);
    Deliver(0xB087, dl);
    g_log_snapshot_store.FreeRlcStatsEntries();
    std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
    EXPECT_EQ(g_log_snapshot_store.RlcStats(0xB087)->rlc_stats_entries, nullptr);
    EXPECT_EQ(g_log_snapshot_store.RlcStats(0xB097)->rlc_stats_entries, nullptr);
}

TEST_F(LogSnapshotStoreTest, WriterAndReaderOnTwoThreads) {
    // The callback's thread replaces arrays while a reader walks them.
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i)
            Deliver(0xB097, StatsPacket(static_cast<uint8_t>(i % 4), (i % 4) * 126,
                                        static_cast<uint8_t>(i)));
        done = true;
    });
    uint64_t sum = 0;
    bool consistent = true;
    while (!done && consistent) {
        std::shared_ptr<const uint8_t[]> entries;
        size_t size = 0;
        {
            std::lock_guard<SnapshotLock> hold(g_log_snapshot_store.mutex());
            entries = g_log_snapshot_store.RlcStats(0xB097)->rlc_stats_entries;
            size = g_log_snapshot_store.RlcStats(0xB097)->entries_size;
            // count and array always come from the same packet
            consistent = size == g_log_snapshot_store.RlcStats(0xB097)->count() * 126u;
        }
        for (size_t i = 0; i < size && entries; ++i) sum += entries[i];
    }
    writer.join();  // before any check: a failed check must not leave it running
    EXPECT_TRUE(consistent) << "a count and an entries array of different packets";
    (void)sum;
}

TEST_F(LogSnapshotStoreTest, NullOrEmptyRecordClearsTheSnapshot) {
    Deliver(0x4110, Packet(0x4110, 87));
    ASSERT_TRUE(g_log_snapshot_store.View(0x4110).has_packet());
    // A null record with a length is taken as empty, for every kind of code.
    for (uint16_t code : {0x4110, 0xB081, 0xB087}) {
        DM_recv_log_packet_cb(nullptr, code, nullptr, 0);
        EXPECT_TRUE(g_log_snapshot_store.Store(code, nullptr, 40));
        EXPECT_FALSE(g_log_snapshot_store.View(code).has_packet()) << std::hex << code;
    }
    uint8_t none = 0;
    EXPECT_TRUE(g_log_snapshot_store.Store(0x4125, &none, 0));
    EXPECT_EQ(SnapshotOf(0x4125), Bytes(13, 0));
}

TEST_F(LogSnapshotStoreTest, ViewReadsNamedFieldsAndNothingPastTheCopy) {
    Bytes packet = Packet(0x4127, 28);  // payload bytes 28, 29, ... from offset 12
    packet[26] = 0x8E;                  // read back as a negative int8
    Deliver(0x4127, packet);
    SnapshotView view = g_log_snapshot_store.View(0x4127);
    ASSERT_EQ(view.size(), 28u);
    EXPECT_EQ(view.Get(log_layout::CellIdentity::kUra), 0x2928);  // offsets 24 and 25
    EXPECT_EQ(view.Read(rt::Field<int8_t>{26}), static_cast<int8_t>(0x8E));
    EXPECT_EQ(view.Read(rt::Field<uint16_t>{27}), std::nullopt);  // one byte left
    EXPECT_EQ(view.Read(rt::Field<uint8_t>{28}), std::nullopt);
    EXPECT_EQ(view.Get(rt::Field<uint32_t>{1000}), 0u);
    // A later packet does not change a view already taken.
    Deliver(0x4127, Packet(0x4127, 12));
    EXPECT_EQ(view.Get(log_layout::CellIdentity::kUra), 0x2928);
    EXPECT_EQ(g_log_snapshot_store.View(0x4127).Get(log_layout::CellIdentity::kUra), 0);
    // A code the store does not keep gives an empty view.
    EXPECT_EQ(g_log_snapshot_store.View(0x1234).size(), 0u);
    EXPECT_FALSE(g_log_snapshot_store.View(0x1234).has_packet());
}

}  // namespace
