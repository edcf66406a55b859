// The QoS field decoders: each field code of the PDP context's QoS profile
// (the 0x7136 snapshot, one code per byte, coded as in the QoS information
// element of 3GPP TS 24.008) turned into one report attribute, a number
// when the code stands for a value and a text otherwise. Each decoder is a
// table of code ranges looked up in order, then its fallback row.
//
//   DecodeMaxBitRate(qos.Get(PdpQos::kMaxBitRateDl), "rab_mbr", report);
#pragma once

#include <cstdint>

class ReportWriter;
class SnapshotView;

enum class QosField {
    kPeakThroughput,
    kPrecedence,
    kMeanThroughput,
    kTrafficClass,
    kDeliveryOrder,
    kErroneousSduDelivery,
    kMaxSduSize,
    kMaxBitRate,
    kResidualBer,
    kSduErrorRatio,
    kTransferDelay,
    kTrafficHandlingPriority,
};

// What one code decodes to.
struct QosValue {
    const char* name;  // the attribute name the table chooses; null: the caller's
    const char* text;  // null: the value is `number`
    int32_t number;
};

QosValue DecodeQos(QosField field, uint8_t code);

// Adds the decoded code as one attribute named `name` (or the table's own
// name where the table chooses between two).
void AddQosAttribute(ReportWriter& report, QosField field, uint8_t code, const char* name);

// The four decoders the bearer and umtsopinfo reports share. The first two
// read their byte of the 0x7136 snapshot, given as the report's one copy of
// it; the other two take the code from the caller.
void DecodeMeanThroughput(const SnapshotView& qos, const char* name, ReportWriter& report);
void DecodeTrafficClass(const SnapshotView& qos, const char* name, ReportWriter& report);
void DecodeMaxBitRate(uint8_t code, const char* name, ReportWriter& report);
void DecodeResidualBer(uint8_t code, const char* name, ReportWriter& report);
