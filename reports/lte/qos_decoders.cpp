#include "reports/lte/qos_decoders.h"

#include <span>

#include "diaglog/snapshot_view.h"
#include "platform/dmux/log_layouts.h"
#include "service/report_writer.h"

namespace {

using log_layout::PdpQos;

// Codes `first` to `last` decode to `text`, or, when it is null, to the
// number base + step x (code - first). `name` overrides the caller's
// attribute name.
struct QosRow {
    uint8_t first;
    uint8_t last;
    const char* text;
    int32_t base;
    int32_t step;
    const char* name;
};

constexpr QosRow Text(uint8_t first, uint8_t last, const char* text, const char* name = nullptr) {
    return {first, last, text, 0, 0, name};
}
constexpr QosRow Text(uint8_t code, const char* text, const char* name = nullptr) {
    return Text(code, code, text, name);
}
constexpr QosRow Number(uint8_t code, int32_t value, const char* name = nullptr) {
    return {code, code, nullptr, value, 0, name};
}
constexpr QosRow Linear(uint8_t first, uint8_t last, int32_t base, int32_t step,
                        const char* name = nullptr) {
    return {first, last, nullptr, base, step, name};
}

// Rows are tried in order; a code that none of them holds takes the fallback.
struct QosTable {
    std::span<const QosRow> rows;
    QosRow fallback;
};

constexpr const char* kFailed = "Failed to decode";

constexpr QosRow kPeakThroughput[] = {
    Text(0, "Subscribed peak throughput"),
    Number(1, 1000),
    Number(2, 2000),
    Number(3, 4000),
    Number(4, 8000),
    Number(5, 16000),
    Number(6, 32000),
    Number(7, 64000),
    Number(8, 128000),
    Number(9, 256000),
    Text(15, "reserved"),
};

constexpr QosRow kPrecedence[] = {
    Text(0, "Subscribed precedence"), Text(1, "High priority"), Text(2, "Normal priority"),
    Text(3, "Low priority"),          Text(7, "reserved"),
};

// Octets per hour. Code 14 is 2000000 as TS 24.008 codes it: the run
// 100, 200, 500, 1000, ... goes on from 1000000 (13) to 5000000 (15).
constexpr QosRow kMeanThroughput[] = {
    Text(0, "Subscribed mean throughput"),
    Number(1, 100),
    Number(2, 200),
    Number(3, 500),
    Number(4, 1000),
    Number(5, 2000),
    Number(6, 5000),
    Number(7, 10000),
    Number(8, 20000),
    Number(9, 50000),
    Number(10, 100000),
    Number(11, 200000),
    Number(12, 500000),
    Number(13, 1000000),
    Number(14, 2000000),
    Number(15, 5000000),
    Number(16, 10000000),
    Number(17, 20000000),
    Number(18, 50000000),
    Text(30, "Reserved"),
    Text(31, "Best effort"),
};

constexpr QosRow kTrafficClass[] = {
    Text(0, "Subscribed traffic class"), Text(1, "Convention class"), Text(2, "Streaming class"),
    Text(3, "Interactive class"),        Text(4, "Background class"), Text(7, "Reserved"),
};

constexpr QosRow kDeliveryOrder[] = {
    Text(0, "Subscribed delivery order"),
    Text(1, "With delivery order (yes)"),
    Text(2, "Without delivery order (no)"),
    Text(3, "Reserved"),
};

constexpr QosRow kErroneousSduDelivery[] = {
    Text(0, "Subscribed delivery"),
    Text(1, "No Detect"),
    Text(2, "Erroneous SDU deliver (yes)"),
    Text(3, "Erroneous SDU not deliver (no)"),
    Text(7, "Reserved"),
};

// The attribute carries its unit only when the value is a size.
constexpr const char* kSduSize = "max SDU size";
constexpr const char* kSduSizeOctets = "max SDU size(octets)";
constexpr QosRow kMaxSduSize[] = {
    Text(0, "subscribed max SDU size", kSduSize),
    Linear(1, 150, 10, 10, kSduSizeOctets),
    Number(151, 1502, kSduSizeOctets),
    Number(152, 1510, kSduSizeOctets),
    Number(153, 1520, kSduSizeOctets),
    Text(255, "Reserved", kSduSizeOctets),
};

// kbps: 1 kbps steps to 63, 8 kbps steps from 64 to 568, 64 kbps steps
// from 576 to 8640; 255 means 0 kbps.
constexpr QosRow kMaxBitRate[] = {
    Text(0, "subscribed max rate"), Linear(1, 63, 1, 1), Linear(64, 127, 64, 8),
    Linear(128, 254, 576, 64),      Number(255, 0),
};

constexpr QosRow kResidualBer[] = {
    Text(0, "subscribed BER"), Text(1, "5*10^(-2)"), Text(2, "1*10^(-2)"), Text(3, "5*10^(-3)"),
    Text(4, "4*10^(-3)"),      Text(5, "1*10^(-3)"), Text(6, "1*10^(-4)"), Text(7, "1*10^(-5)"),
    Text(8, "1*10^(-6)"),      Text(9, "6*10^(-8)"), Text(15, "Reserved"),
};

constexpr QosRow kSduErrorRatio[] = {
    Text(0, "subscribed SDU error ratio"),
    Text(1, "1*10^(-2)"),
    Text(2, "7*10^(-3)"),
    Text(3, "1*10^(-3)"),
    Text(4, "1*10^(-4)"),
    Text(5, "1*10^(-5)"),
    Text(6, "1*10^(-6)"),
    Text(7, "1*10^(-1)"),
    Text(15, "Reserved"),
};

// Milliseconds. Codes 16 to 62 follow TS 24.008: 200 to 950 ms in 50 ms
// steps (16 to 31), then 1000 to 4000 ms in 100 ms steps (32 to 62).
constexpr const char* kTransferDelay = "Transfer delay";
constexpr const char* kTransferDelayMs = "Transfer delay(ms)";
constexpr QosRow kTransferDelayRows[] = {
    Text(0, "Subscribed transfer delay", kTransferDelay),
    Linear(1, 15, 10, 10, kTransferDelayMs),
    Linear(16, 31, 200, 50, kTransferDelayMs),
    Linear(32, 62, 1000, 100, kTransferDelayMs),
    Text(63, "Subscribed transfer delay", kTransferDelay),
};

constexpr QosRow kTrafficHandlingPriority[] = {
    Text(0, "Subscribed traffic hand priority"),
    Linear(1, 3, 1, 1),
};

// Indexed by QosField. The maximum-bit-rate table covers every code, so its
// fallback is never taken; the peak-throughput table falls back to 1000.
constexpr QosTable kTables[] = {
    {kPeakThroughput, Number(0, 1000)},
    {kPrecedence, Text(0, kFailed)},
    {kMeanThroughput, Text(0, kFailed)},
    {kTrafficClass, Text(0, kFailed)},
    {kDeliveryOrder, Text(0, kFailed)},
    {kErroneousSduDelivery, Text(0, kFailed)},
    {kMaxSduSize, Text(0, kFailed, kSduSize)},
    {kMaxBitRate, Text(0, kFailed)},
    {kResidualBer, Text(0, kFailed)},
    {kSduErrorRatio, Text(0, kFailed)},
    {kTransferDelayRows, Text(0, kFailed, kTransferDelay)},
    {kTrafficHandlingPriority, Text(0, kFailed)},
};
static_assert(std::size(kTables) == static_cast<size_t>(QosField::kTrafficHandlingPriority) + 1);

QosValue ValueOf(const QosRow& row, uint8_t code) {
    if (row.text != nullptr) return {row.name, row.text, 0};
    return {row.name, nullptr, row.base + row.step * (code - row.first)};
}

}  // namespace

QosValue DecodeQos(QosField field, uint8_t code) {
    const QosTable& table = kTables[static_cast<size_t>(field)];
    for (const QosRow& row : table.rows) {
        if (code >= row.first && code <= row.last) return ValueOf(row, code);
    }
    return ValueOf(table.fallback, table.fallback.first);
}

void AddQosAttribute(ReportWriter& report, QosField field, uint8_t code, const char* name) {
    const QosValue value = DecodeQos(field, code);
    const char* attribute = value.name != nullptr ? value.name : name;
    if (value.text != nullptr) {
        report.String(attribute, value.text);
    } else {
        report.Int(attribute, value.number);
    }
}

void DecodeMeanThroughput(const SnapshotView& qos, const char* name, ReportWriter& report) {
    AddQosAttribute(report, QosField::kMeanThroughput, qos.Get(PdpQos::kMeanThroughput), name);
}

void DecodeTrafficClass(const SnapshotView& qos, const char* name, ReportWriter& report) {
    AddQosAttribute(report, QosField::kTrafficClass, qos.Get(PdpQos::kTrafficClass), name);
}

void DecodeMaxBitRate(uint8_t code, const char* name, ReportWriter& report) {
    AddQosAttribute(report, QosField::kMaxBitRate, code, name);
}

void DecodeResidualBer(uint8_t code, const char* name, ReportWriter& report) {
    AddQosAttribute(report, QosField::kResidualBer, code, name);
}
