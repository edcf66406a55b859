// The QoS field decoders at the edges of their computed ranges, their gaps
// and fallbacks, and the codes TS 24.008 defines where the tables leave a gap
// (mean throughput 14, transfer delay 16 to 62). The plain text rows are
// checked through the bearer and umtsopinfo reports.
#include "reports/lte/qos_decoders.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr const char* kFailed = "Failed to decode";

// A code's expected value: a text or a number, and the table's own name
// when it chooses one (null: the caller's).
struct Case {
    QosField field;
    unsigned code;
    const char* text;
    int32_t number;
    const char* name = nullptr;
};

using F = QosField;
constexpr const char* kSdu = "max SDU size(octets)";
constexpr const char* kSduPlain = "max SDU size";
constexpr const char* kDelay = "Transfer delay(ms)";
constexpr const char* kDelayPlain = "Transfer delay";

TEST(QosDecoders, EdgesGapsAndFallbacks) {
    const Case cases[] = {
        {F::kMaxBitRate, 63, nullptr, 63},
        {F::kMaxBitRate, 64, nullptr, 64},
        {F::kMaxBitRate, 65, nullptr, 72},
        {F::kMaxBitRate, 127, nullptr, 568},
        {F::kMaxBitRate, 128, nullptr, 576},
        {F::kMaxBitRate, 254, nullptr, 8640},
        {F::kMaxBitRate, 255, nullptr, 0},
        {F::kMeanThroughput, 13, nullptr, 1000000},
        {F::kMeanThroughput, 14, nullptr, 2000000},
        {F::kMeanThroughput, 18, nullptr, 50000000},
        {F::kMeanThroughput, 19, kFailed, 0},
        {F::kMeanThroughput, 30, "Reserved", 0},
        {F::kMeanThroughput, 32, kFailed, 0},
        {F::kTrafficClass, 6, kFailed, 0},
        {F::kTrafficClass, 7, "Reserved", 0},
        {F::kTrafficClass, 8, kFailed, 0},
        {F::kResidualBer, 14, kFailed, 0},
        {F::kResidualBer, 15, "Reserved", 0},
        {F::kResidualBer, 16, kFailed, 0},
        {F::kPeakThroughput, 9, nullptr, 256000},
        {F::kPeakThroughput, 10, nullptr, 1000},
        {F::kPeakThroughput, 15, "reserved", 0},
        {F::kPeakThroughput, 255, nullptr, 1000},
        {F::kPrecedence, 4, kFailed, 0},
        {F::kPrecedence, 7, "reserved", 0},
        {F::kDeliveryOrder, 3, "Reserved", 0},
        {F::kDeliveryOrder, 4, kFailed, 0},
        {F::kErroneousSduDelivery, 7, "Reserved", 0},
        {F::kErroneousSduDelivery, 200, kFailed, 0},
        {F::kSduErrorRatio, 8, kFailed, 0},
        {F::kSduErrorRatio, 15, "Reserved", 0},
        {F::kTrafficHandlingPriority, 3, nullptr, 3},
        {F::kTrafficHandlingPriority, 4, kFailed, 0},
        // The two tables that name their attribute after what they decode.
        {F::kMaxSduSize, 0, "subscribed max SDU size", 0, kSduPlain},
        {F::kMaxSduSize, 150, nullptr, 1500, kSdu},
        {F::kMaxSduSize, 151, nullptr, 1502, kSdu},
        {F::kMaxSduSize, 153, nullptr, 1520, kSdu},
        {F::kMaxSduSize, 154, kFailed, 0, kSduPlain},
        {F::kMaxSduSize, 255, "Reserved", 0, kSdu},
        {F::kTransferDelay, 0, "Subscribed transfer delay", 0, kDelayPlain},
        {F::kTransferDelay, 15, nullptr, 150, kDelay},
        {F::kTransferDelay, 16, nullptr, 200, kDelay},
        {F::kTransferDelay, 31, nullptr, 950, kDelay},
        {F::kTransferDelay, 32, nullptr, 1000, kDelay},
        {F::kTransferDelay, 62, nullptr, 4000, kDelay},
        {F::kTransferDelay, 63, "Subscribed transfer delay", 0, kDelayPlain},
        {F::kTransferDelay, 64, kFailed, 0, kDelayPlain},
    };
    for (const Case& c : cases) {
        const QosValue v = DecodeQos(c.field, static_cast<uint8_t>(c.code));
        SCOPED_TRACE("field " + std::to_string(static_cast<int>(c.field)) + " code " +
                     std::to_string(c.code));
        EXPECT_STREQ(v.text, c.text);
        if (c.text == nullptr) {
            EXPECT_EQ(v.number, c.number);
        }
        EXPECT_STREQ(v.name, c.name);
    }
}

// Every code of every table decodes to something; only the two-name tables
// ever choose the attribute's name.
TEST(QosDecoders, EveryCodeOfEveryTableDecodes) {
    for (int field = 0; field <= static_cast<int>(QosField::kTrafficHandlingPriority); ++field) {
        const auto f = static_cast<QosField>(field);
        const bool names = f == QosField::kMaxSduSize || f == QosField::kTransferDelay;
        for (unsigned code = 0; code <= 255; ++code) {
            const QosValue v = DecodeQos(f, static_cast<uint8_t>(code));
            EXPECT_EQ(v.name != nullptr, names) << field << " " << code;
            if (v.text == nullptr) {
                EXPECT_GE(v.number, 0) << field << " " << code;
            }
        }
    }
}

}  // namespace
