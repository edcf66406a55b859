// PpsObjectText: the text of one PPS object or reply, decoded and entered,
// for the readers of other services' objects. Each failing step is logged
// as "<caller> : Tavora: Error in <step> : <code>"; the decoder is cleaned
// up when the value goes out of scope.
//
//   PpsObjectText status(kName, buffer);       // buffer: the text read
//   if (!status.ok()) return;
//   pps_decoder_get_bool(status.decoder(), "connected", &connected);
#pragma once

#include "platform/pps/pps_decoder.h"

class PpsObjectText {
  public:
    // How the parse step is named in the failure line.
    static constexpr const char* kParsePpsStr = "pps_decoder_parse_pps_str";
    static constexpr const char* kParseStr = "pps_decoder_parse_str";

    // Decodes `text` in place (it must outlive this value) and enters its
    // first object.
    PpsObjectText(const char* caller, char* text, const char* parse_step = kParsePpsStr);
    ~PpsObjectText();
    PpsObjectText(const PpsObjectText&) = delete;
    PpsObjectText& operator=(const PpsObjectText&) = delete;

    bool ok() const { return entered_; }
    pps_decoder_t* decoder() { return &decoder_; }

  private:
    pps_decoder_t decoder_;
    bool initialised_ = false;
    bool entered_ = false;
};

// Logs "<caller> : Tavora: Error in pps_decoder_push : <code>", the line of
// a member that could not be entered.
void LogDecoderPushError(const char* caller, int code);
