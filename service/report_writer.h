// ReportWriter: how every report, event and write-back reaches a PPS object.
// It owns one encoder for one message, names the numbered "%1d" attribute
// families, writes the two absence literals, and sends the message to its
// object in one write whose result is not examined; a report then answers
// its client with the same request it received.
//
//   ReportWriter report(context->utra_fd);
//   report.Int("scell_ura", ura);
//   report.NoData(Numbered("aset_sc%1d", n));
//   report.WriteAndReply(server, request);
#pragma once

#include <cstdint>
#include <optional>

#include "platform/pps/pps_encoder.h"

class PPSServer;

// A request as the command handler received it; the texts point into the
// server's read buffer and are valid only during the handler.
struct ReportRequest {
    uint64_t client_id;
    const char* msg;
    const char* id;
    const char* dat;
};

// The name of entry n of a numbered family, formatted with its "%1d" format
// into a 24-character name buffer.
class Numbered {
  public:
    Numbered(const char* format, int n);
    operator const char*() const { return name_; }

  private:
    char name_[25];
};

class ReportWriter {
  public:
    // Writes go to `fd` (a status or configuration object; -1 writes nothing).
    explicit ReportWriter(int32_t fd);
    ~ReportWriter();
    ReportWriter(const ReportWriter&) = delete;
    ReportWriter& operator=(const ReportWriter&) = delete;

    void Int(const char* name, int32_t value);
    void Double(const char* name, double value);
    void String(const char* name, const char* value);
    // "No data available!": the value's source holds nothing.
    void NoData(const char* name);
    // "Not supported!": the daemon has no source for the value.
    void NotSupported(const char* name);
    // The value, or "No data available!" when there is none.
    void IntOr(const char* name, std::optional<int32_t> value);
    void DeleteAttribute(const char* name);

    // JSON attributes: StartObject("dat") ... EndObject() makes one object
    // attribute; StartArray(name), then per member StartObject() ...
    // EndObject(), then EndArray() an array of unnamed objects.
    void StartArray(const char* name);
    void EndArray();
    void StartObject(const char* name = nullptr);
    void EndObject();

    // The message so far, sent in one write; the encoder starts over. False
    // when the encoder had no message to send (a failed call).
    bool Write();
    // Write(), then the reply to the request: the request's own msg, id and
    // dat on the daemon's server object, no error.
    void WriteAndReply(PPSServer* server, const ReportRequest& request);

  private:
    pps_encoder_t encoder_;
    int32_t fd_;
};
