// PPS encoder: builds one PPS text message from a sequence of calls.
//
//   pps_encoder_t enc;
//   pps_encoder_initialize(&enc, false);
//   pps_encoder_add_string(&enc, "rrc_state", "CELL_DCH");   // "rrc_state::CELL_DCH\n"
//   pps_encoder_add_int(&enc, "err", 22);                    // "err:n:22\n"
//   write(fd, pps_encoder_buffer(&enc), pps_encoder_length(&enc));
//   pps_encoder_cleanup(&enc);
//
// A start_object as the first call renders an object line "@name\n" (a
// server reply). Any other start_object/start_array opens one JSON-encoded
// attribute ("name:json:{...}") that collects everything added until the
// matching end call; members of an array have no name (pass nullptr; a
// name given there is ignored). A string holding a newline is written with
// the "c" encoding (backslash escapes); doubles use the shortest text that
// reads back as the same double. After any failed call the encoder yields
// no buffer until it is reset.
#pragma once

#include <cstdint>

enum pps_encoder_error_t {
    PPS_ENCODER_OK = 0,
    PPS_ENCODER_NO_MEMORY,
    PPS_ENCODER_BAD_NESTING,    // end without start, or a name missing or unusable
                                // (top-level names hold no ':' and no newline)
    PPS_ENCODER_INVALID_VALUE,  // e.g. a non-finite double, JSON text that does not parse
};

struct pps_encoder_impl;

struct pps_encoder_t {
    pps_encoder_impl* impl = nullptr;
};

pps_encoder_error_t pps_encoder_initialize(pps_encoder_t* encoder, bool encode_json);
void pps_encoder_cleanup(pps_encoder_t* encoder);
void pps_encoder_reset(pps_encoder_t* encoder);

pps_encoder_error_t pps_encoder_start_object(pps_encoder_t* encoder, const char* name);
pps_encoder_error_t pps_encoder_end_object(pps_encoder_t* encoder);
pps_encoder_error_t pps_encoder_start_array(pps_encoder_t* encoder, const char* name);
pps_encoder_error_t pps_encoder_end_array(pps_encoder_t* encoder);

pps_encoder_error_t pps_encoder_add_string(pps_encoder_t* encoder, const char* name,
                                           const char* value);
pps_encoder_error_t pps_encoder_add_int(pps_encoder_t* encoder, const char* name, int32_t value);
pps_encoder_error_t pps_encoder_add_int64(pps_encoder_t* encoder, const char* name, int64_t value);
pps_encoder_error_t pps_encoder_add_double(pps_encoder_t* encoder, const char* name, double value);
pps_encoder_error_t pps_encoder_add_bool(pps_encoder_t* encoder, const char* name, bool value);
pps_encoder_error_t pps_encoder_add_null(pps_encoder_t* encoder, const char* name);
// `json` is JSON text, written as is under the "json" encoding (top level)
// or embedded as a value (inside an object or array).
pps_encoder_error_t pps_encoder_add_json(pps_encoder_t* encoder, const char* name,
                                         const char* json);
// Renders "-name\n".
pps_encoder_error_t pps_encoder_delete_attribute(pps_encoder_t* encoder, const char* name);

// The encoded text, NUL-terminated; nullptr while an object or array is
// still open or after an error. Valid until the next call on the encoder.
const char* pps_encoder_buffer(const pps_encoder_t* encoder);
int pps_encoder_length(const pps_encoder_t* encoder);
