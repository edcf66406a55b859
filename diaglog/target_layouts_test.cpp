// The DIAG library describes the daemon's layouts itself (it may not
// include the daemon's headers). Its offsets and widths must be the
// daemon's, field by field, or a translated packet would be read wrong.
#include "platform/dmux/packet_versions/target_layouts.h"

#include <gtest/gtest.h>

#include "diaglog/log_layouts.h"
#include "diaglog/log_snapshot_store.h"

namespace {

template <class A, class B>
void ExpectSame(rt::Field<A> library, rt::Field<B> daemon, const char* name) {
    EXPECT_EQ(library.offset, daemon.offset) << name;
    EXPECT_EQ(sizeof(A), sizeof(B)) << name;
    EXPECT_EQ(std::is_signed_v<A>, std::is_signed_v<B>) << name;
}
#define SAME(lib, daemon) ExpectSame(lib, daemon, #daemon)

namespace t = dmux::target;
namespace d = log_layout;

TEST(TargetLayoutsTest, ServingCellAgrees) {
    static_assert(t::LteServingCell::kCode == d::LteServingCell::kCode);
    EXPECT_EQ(t::LteServingCell::kSize, d::LteServingCell::kSize);
    SAME(t::LteServingCell::kPci, d::LteServingCell::kPci);
    SAME(t::LteServingCell::kDlEarfcn, d::LteServingCell::kDlEarfcn);
    SAME(t::LteServingCell::kUlEarfcn, d::LteServingCell::kUlEarfcn);
    SAME(t::LteServingCell::kDlBandwidthRb, d::LteServingCell::kDlBandwidthRb);
    SAME(t::LteServingCell::kUlBandwidthRb, d::LteServingCell::kUlBandwidthRb);
    SAME(t::LteServingCell::kCellId, d::LteServingCell::kCellId);
    SAME(t::LteServingCell::kTac, d::LteServingCell::kTac);
    SAME(t::LteServingCell::kBand, d::LteServingCell::kBand);
    SAME(t::LteServingCell::kMcc, d::LteServingCell::kMcc);
    SAME(t::LteServingCell::kMnc, d::LteServingCell::kMnc);
}

TEST(TargetLayoutsTest, MeasurementsIdentityAndRssiAgree) {
    static_assert(t::LteServingMeasurements::kCode == d::LteServingMeasurements::kCode);
    EXPECT_EQ(t::LteServingMeasurements::kSize, d::LteServingMeasurements::kSize);
    SAME(t::LteServingMeasurements::kEarfcn, d::LteServingMeasurements::kEarfcn);
    SAME(t::LteServingMeasurements::kPci, d::LteServingMeasurements::kPci);
    SAME(t::LteServingMeasurements::kRawRsrp, d::LteServingMeasurements::kRawRsrp);
    SAME(t::LteServingMeasurements::kRawRsrq, d::LteServingMeasurements::kRawRsrq);
    static_assert(t::LteUeIdentity::kCode == d::LteUeIdentity::kCode);
    EXPECT_EQ(t::LteUeIdentity::kSize, d::LteUeIdentity::kSize);
    static_assert(t::LteServingRssi::kCode == d::LteServingRssi::kCode);
    EXPECT_EQ(t::LteServingRssi::kSize, d::LteServingRssi::kSize);
    SAME(t::kVersion, d::LteServingRssi::kVersion);
    SAME(t::LteServingRssi::kRssiWord, d::LteServingRssi::kRssiWord);
}

TEST(TargetLayoutsTest, RlcStatisticsAgree) {
    using D = d::RlcDlStatsEntry;
    using T = t::RlcDlStats;
    static_assert(T::kCode == D::kCode && T::kCode == kLogCodeRlcDlStats);
    EXPECT_EQ(T::kEntrySize, D::kSize);
    EXPECT_EQ(T::kCount.offset, RlcStatsSnapshot::kCountOffset);
    EXPECT_EQ(T::kHeaderSize, RlcStatsSnapshot::kMaxHeaderSize);
    SAME(T::kCfgIdx, D::kCfgIdx);
    SAME(T::kMode, D::kMode);
    SAME(T::kNumRst, D::kNumRst);
    SAME(T::kNumDataPdu, D::kNumDataPdu);
    SAME(T::kNumStatusRxed, D::kNumStatusRxed);
    SAME(T::kNumInvalidPdu, D::kNumInvalidPdu);
    SAME(T::kNumRetxPdu, D::kNumRetxPdu);
    SAME(T::kNumDupPdu, D::kNumDupPdu);
    SAME(T::kNumDroppedPdu, D::kNumDroppedPdu);
    SAME(T::kNumDroppedPduFc, D::kNumDroppedPduFc);
    SAME(T::kNumSdu, D::kNumSdu);
    SAME(T::kNumNonseqSdu, D::kNumNonseqSdu);
    SAME(T::kNumCtrlPdu, D::kNumCtrlPdu);
    SAME(T::kNumCompNack, D::kNumCompNack);
    SAME(T::kNumSegmNack, D::kNumSegmNack);
    SAME(T::kNumTReordExp, D::kNumTReordExp);
    static_assert(t::RlcUlStats::kCode == d::RlcUlStatsEntry::kCode);
    EXPECT_EQ(t::RlcUlStats::kEntrySize, d::RlcUlStatsEntry::kSize);
    EXPECT_EQ(t::RlcUlStats::kCount.offset, RlcStatsSnapshot::kCountOffset);
    static_assert(t::RlcDlConfig::kCode == d::RlcConfig::kDlCode);
    static_assert(t::RlcUlConfig::kCode == d::RlcConfig::kUlCode);
    EXPECT_EQ(t::RlcDlConfig::kHeaderSize, RlcConfigSnapshot::kHeaderSize);
}

}  // namespace
