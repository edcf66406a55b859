// The eight reports in one table: the request that asks for each, the
// status object it is written to, and how it is published. The daemon
// registers one handler per row, in this order; every handler publishes its
// row into one message to the row's object, writes it once and answers the
// request (the request's own msg, id and dat).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "service/report_writer.h"
#include "service/tavora_context.h"

class PPSServer;

struct ReportEntry {
    const char* name;                       // the request's msg
    int32_t TavoraContext::*status_object;  // the descriptor the report goes to
    void (*publish)(ReportWriter& report, TavoraContext* context);
};

std::span<const ReportEntry> Reports();

using ReportHandler = void (*)(PPSServer* server, void* context, uint64_t client_id,
                               const char* msg, const char* id, const char* dat);
// The handler of Reports()[index] (null past the end).
ReportHandler ReportHandlerAt(size_t index);
// The handler of the report asked for by `name` (null for no report); tests.
ReportHandler ReportHandlerFor(std::string_view name);
