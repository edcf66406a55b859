#include "reports/report_table.h"

#include <array>
#include <utility>

#include "reports/lte/bearer.h"
#include "reports/lte/get_3gpp2_info.h"
#include "reports/lte/lte_op_info.h"
#include "reports/lte/umts_op_info.h"
#include "reports/wcdma/hspa_op_info.h"
#include "reports/wcdma/radio_nw_info.h"
#include "reports/wcdma/radio_stats.h"
#include "reports/wcdma/tch_tx_pwr.h"
#include "service/pps_server.h"

namespace {

// A report that reads nothing of the context.
template <void (*kPublish)(ReportWriter&)>
void WithoutContext(ReportWriter& report, TavoraContext*) {
    kPublish(report);
}

constexpr ReportEntry kReports[] = {
    {"radionwinfo", &TavoraContext::utra_fd, PublishRadioNwInfo},
    {"radiostats", &TavoraContext::utra_fd, PublishRadioStats},
    {"umtsopinfo", &TavoraContext::utra_fd, PublishUmtsOpInfo},
    {"hspaopinfo", &TavoraContext::utra_fd, WithoutContext<PublishHspaOpInfo>},
    {"lteopinfo", &TavoraContext::eutra_fd, PublishLteOpInfo},
    {"bearer", &TavoraContext::data_fd, WithoutContext<PublishBearer>},
    {"tchtxpwr", &TavoraContext::utra_fd, WithoutContext<PublishTchTxPwr>},
    {"3gpp2info", &TavoraContext::cdma_fd, Publish3GPP2Info},
};

template <size_t kIndex>
void AnswerReport(PPSServer* server, void* arg, uint64_t client_id, const char* msg, const char* id,
                  const char* dat) {
    constexpr const ReportEntry& entry = kReports[kIndex];
    auto* context = static_cast<TavoraContext*>(arg);
    ReportWriter report(context != nullptr ? context->*entry.status_object : -1);
    entry.publish(report, context);
    report.WriteAndReply(server, {client_id, msg, id, dat});
}

template <size_t... kIndex>
constexpr std::array<ReportHandler, sizeof...(kIndex)> Handlers(std::index_sequence<kIndex...>) {
    return {AnswerReport<kIndex>...};
}
constexpr auto kHandlers = Handlers(std::make_index_sequence<std::size(kReports)>());

}  // namespace

std::span<const ReportEntry> Reports() {
    return kReports;
}

ReportHandler ReportHandlerAt(size_t index) {
    return index < kHandlers.size() ? kHandlers[index] : nullptr;
}

ReportHandler ReportHandlerFor(std::string_view name) {
    for (size_t i = 0; i < std::size(kReports); ++i)
        if (name == kReports[i].name) return kHandlers[i];
    return nullptr;
}
