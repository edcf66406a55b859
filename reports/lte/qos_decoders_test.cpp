// The QoS field decoders: every table's rows at their edges, the fallback
// row, the two-name tables, and the codes TS 24.008 defines where the
// tables leave a gap (mean throughput 14, transfer delay 16 to 62).
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

std::string Describe(const QosValue& v) {
    std::string out = v.name != nullptr ? std::string(v.name) + " = " : "";
    return out + (v.text != nullptr ? std::string("\"") + v.text + "\"" : std::to_string(v.number));
}

void ExpectCases(std::initializer_list<Case> cases) {
    for (const Case& c : cases) {
        const QosValue v = DecodeQos(c.field, static_cast<uint8_t>(c.code));
        SCOPED_TRACE("field " + std::to_string(static_cast<int>(c.field)) + " code " +
                     std::to_string(c.code) + " gave " + Describe(v));
        if (c.text != nullptr) {
            ASSERT_NE(v.text, nullptr);
            EXPECT_STREQ(v.text, c.text);
        } else {
            EXPECT_EQ(v.text, nullptr);
            EXPECT_EQ(v.number, c.number);
        }
        if (c.name != nullptr) {
            ASSERT_NE(v.name, nullptr);
            EXPECT_STREQ(v.name, c.name);
        } else {
            EXPECT_EQ(v.name, nullptr);
        }
    }
}

TEST(QosDecoders, MaxBitRate) {
    const auto f = QosField::kMaxBitRate;
    ExpectCases({{f, 0, "subscribed max rate", 0},
                 {f, 1, nullptr, 1},
                 {f, 63, nullptr, 63},
                 {f, 64, nullptr, 64},
                 {f, 65, nullptr, 72},
                 {f, 127, nullptr, 568},
                 {f, 128, nullptr, 576},
                 {f, 254, nullptr, 8640},
                 {f, 255, nullptr, 0}});
}

TEST(QosDecoders, MeanThroughput) {
    const auto f = QosField::kMeanThroughput;
    ExpectCases({{f, 0, "Subscribed mean throughput", 0},
                 {f, 1, nullptr, 100},
                 {f, 3, nullptr, 500},
                 {f, 13, nullptr, 1000000},
                 {f, 14, nullptr, 2000000},  // TS 24.008
                 {f, 15, nullptr, 5000000},
                 {f, 18, nullptr, 50000000},
                 {f, 19, kFailed, 0},
                 {f, 29, kFailed, 0},
                 {f, 30, "Reserved", 0},
                 {f, 31, "Best effort", 0},
                 {f, 32, kFailed, 0},
                 {f, 255, kFailed, 0}});
}

TEST(QosDecoders, TrafficClassAndResidualBer) {
    const auto t = QosField::kTrafficClass;
    const auto b = QosField::kResidualBer;
    ExpectCases({{t, 0, "Subscribed traffic class", 0},
                 {t, 1, "Convention class", 0},
                 {t, 4, "Background class", 0},
                 {t, 5, kFailed, 0},
                 {t, 6, kFailed, 0},
                 {t, 7, "Reserved", 0},
                 {t, 8, kFailed, 0},
                 {b, 0, "subscribed BER", 0},
                 {b, 1, "5*10^(-2)", 0},
                 {b, 9, "6*10^(-8)", 0},
                 {b, 10, kFailed, 0},
                 {b, 14, kFailed, 0},
                 {b, 15, "Reserved", 0},
                 {b, 16, kFailed, 0}});
}

TEST(QosDecoders, PeakThroughputFallsBackToANumber) {
    const auto f = QosField::kPeakThroughput;
    ExpectCases({{f, 0, "Subscribed peak throughput", 0},
                 {f, 1, nullptr, 1000},
                 {f, 4, nullptr, 8000},
                 {f, 9, nullptr, 256000},
                 {f, 10, nullptr, 1000},
                 {f, 12, nullptr, 1000},
                 {f, 15, "reserved", 0},
                 {f, 255, nullptr, 1000}});
}

TEST(QosDecoders, PrecedenceDeliveryOrderAndErroneousSdus) {
    const auto p = QosField::kPrecedence;
    const auto o = QosField::kDeliveryOrder;
    const auto e = QosField::kErroneousSduDelivery;
    ExpectCases({{p, 0, "Subscribed precedence", 0},
                 {p, 3, "Low priority", 0},
                 {p, 4, kFailed, 0},
                 {p, 7, "reserved", 0},
                 {p, 8, kFailed, 0},
                 {o, 1, "With delivery order (yes)", 0},
                 {o, 2, "Without delivery order (no)", 0},
                 {o, 3, "Reserved", 0},
                 {o, 4, kFailed, 0},
                 {e, 0, "Subscribed delivery", 0},
                 {e, 1, "No Detect", 0},
                 {e, 2, "Erroneous SDU deliver (yes)", 0},
                 {e, 3, "Erroneous SDU not deliver (no)", 0},
                 {e, 6, kFailed, 0},
                 {e, 7, "Reserved", 0},
                 {e, 200, kFailed, 0}});
}

TEST(QosDecoders, SduErrorRatioAndTrafficHandlingPriority) {
    const auto r = QosField::kSduErrorRatio;
    const auto h = QosField::kTrafficHandlingPriority;
    ExpectCases({{r, 0, "subscribed SDU error ratio", 0},
                 {r, 7, "1*10^(-1)", 0},
                 {r, 8, kFailed, 0},
                 {r, 15, "Reserved", 0},
                 {h, 0, "Subscribed traffic hand priority", 0},
                 {h, 1, nullptr, 1},
                 {h, 2, nullptr, 2},
                 {h, 3, nullptr, 3},
                 {h, 4, kFailed, 0}});
}

TEST(QosDecoders, MaxSduSizeNamesItsAttribute) {
    const auto f = QosField::kMaxSduSize;
    const char* plain = "max SDU size";
    const char* octets = "max SDU size(octets)";
    ExpectCases({{f, 0, "subscribed max SDU size", 0, plain},
                 {f, 1, nullptr, 10, octets},
                 {f, 150, nullptr, 1500, octets},
                 {f, 151, nullptr, 1502, octets},
                 {f, 152, nullptr, 1510, octets},
                 {f, 153, nullptr, 1520, octets},
                 {f, 154, kFailed, 0, plain},
                 {f, 200, kFailed, 0, plain},
                 {f, 254, kFailed, 0, plain},
                 {f, 255, "Reserved", 0, octets}});
}

// Codes 16 to 62 as TS 24.008 codes them: 50 ms steps from 200 ms, then
// 100 ms steps from 1000 ms.
TEST(QosDecoders, TransferDelayNamesItsAttribute) {
    const auto f = QosField::kTransferDelay;
    const char* plain = "Transfer delay";
    const char* ms = "Transfer delay(ms)";
    ExpectCases({{f, 0, "Subscribed transfer delay", 0, plain},
                 {f, 1, nullptr, 10, ms},
                 {f, 15, nullptr, 150, ms},
                 {f, 16, nullptr, 200, ms},
                 {f, 17, nullptr, 250, ms},
                 {f, 31, nullptr, 950, ms},
                 {f, 32, nullptr, 1000, ms},
                 {f, 62, nullptr, 4000, ms},
                 {f, 63, "Subscribed transfer delay", 0, plain},
                 {f, 64, kFailed, 0, plain},
                 {f, 255, kFailed, 0, plain}});
}

// Only the two-name tables ever choose the attribute's name.
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
