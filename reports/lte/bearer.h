// The bearer report: the radio access bearer in use, its domain and the
// rates, traffic class and residual bit error ratio of the active PDP
// context's QoS profile (0x7136), and its RAB id (0x413A), published to
// diag/status_data.
#pragma once

#include <cstdint>
#include <optional>

class PPSServer;
class ReportWriter;
class SnapshotView;

// The RAB id the 0x413A snapshot's selector names; none when the snapshot
// holds no packet or the selector names an entry past its 32 entries.
std::optional<int32_t> SelectedRabId(const SnapshotView& rabs);

// The report's attributes, in order.
void PublishBearer(ReportWriter& report);
