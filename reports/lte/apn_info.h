// The LTE APN settings as the OMA-DM client holds them: one leaf of
// ./ManagedObjects/ConnMO/LTE/APN/<entry>/Setting/<node> asked through
// /pps/services/omadm/radio/control and published to diag/status_eutra as
// lte_apn<entry>_<node>. Entry 3's Name is the "internet" APN, remembered in
// CurrentApnName.
#pragma once

#include <cstddef>

class ReportWriter;
struct TavoraContext;

// The "internet" APN as last seen; starts as "vzwinternet".
inline constexpr size_t kCurrentApnNameSize = 256;
extern char CurrentApnName[kCurrentApnNameSize];

// How long one leaf request waits for the OMA-DM service's answer: above the
// 1.5 s a busy service may take for a leaf, so such a service yields every
// leaf. A service that does not answer costs one such wait: until its late
// answers have come in (or kOmadmOwedAnswersForgetMs has passed), the
// following leaves are not asked, so a late answer is never taken for
// another leaf's and a dead service holds a report for one wait, not twenty.
inline constexpr int kOmadmAnswerTimeoutMs = 2000;
inline constexpr int kOmadmOwedAnswersForgetMs = 10000;

// Asks for leaf `node` of APN entry `entry` and publishes the answer (or
// "No data available!" for an error answer) to context->eutra_fd. Publishes
// nothing when the control object is not open or no answer comes.
void GetAPNInfo(const TavoraContext* context, const char* node, int entry);

// The decoding behind GetAPNInfo: adds what an answer's text (at most 4095
// bytes, terminated; decoded in place) says of the leaf to `report`.
void AddLeafAnswerText(char* text, const char* node, int entry, ReportWriter& report);

// Back to the start state (CurrentApnName, no answers owed). Tests only.
void ResetApnInfo();
