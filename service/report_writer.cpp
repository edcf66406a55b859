#include "service/report_writer.h"

#include <unistd.h>

#include <cstdio>

#include "service/pps_server.h"
#include "service/tavora_strings.h"

Numbered::Numbered(const char* format, int n) {
    std::snprintf(name_, sizeof name_, format, n);
}

ReportWriter::ReportWriter(int32_t fd) : fd_(fd) {
    pps_encoder_initialize(&encoder_, false);
}

ReportWriter::~ReportWriter() {
    pps_encoder_cleanup(&encoder_);
}

void ReportWriter::Int(const char* name, int32_t value) {
    pps_encoder_add_int(&encoder_, name, value);
}

void ReportWriter::Double(const char* name, double value) {
    pps_encoder_add_double(&encoder_, name, value);
}

void ReportWriter::String(const char* name, const char* value) {
    pps_encoder_add_string(&encoder_, name, value);
}

void ReportWriter::NoData(const char* name) {
    String(name, kNoDataAvailable);
}

void ReportWriter::NotSupported(const char* name) {
    String(name, kNotSupported);
}

void ReportWriter::IntOr(const char* name, std::optional<int32_t> value) {
    if (value) {
        Int(name, *value);
    } else {
        NoData(name);
    }
}

void ReportWriter::DeleteAttribute(const char* name) {
    pps_encoder_delete_attribute(&encoder_, name);
}

void ReportWriter::StartArray(const char* name) {
    pps_encoder_start_array(&encoder_, name);
}
void ReportWriter::EndArray() {
    pps_encoder_end_array(&encoder_);
}
void ReportWriter::StartObject(const char* name) {
    pps_encoder_start_object(&encoder_, name);
}
void ReportWriter::EndObject() {
    pps_encoder_end_object(&encoder_);
}

bool ReportWriter::Write() {
    // An encoder left without a buffer (a failed call) writes nothing.
    const char* buffer = pps_encoder_buffer(&encoder_);
    if (buffer != nullptr && fd_ >= 0) {
        [[maybe_unused]] ssize_t written =
            ::write(fd_, buffer, static_cast<size_t>(pps_encoder_length(&encoder_)));
    }
    pps_encoder_reset(&encoder_);
    return buffer != nullptr;
}

void ReportWriter::WriteAndReply(PPSServer* server, const ReportRequest& request) {
    Write();
    server->PPSReply(kControlServerPath, request.client_id, request.msg, request.id, request.dat, 0,
                     false);
}
