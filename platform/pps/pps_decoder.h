// PPS decoder: parses one PPS text message and lets the caller walk it.
//
//   pps_decoder_t dec;
//   pps_decoder_initialize(&dec, nullptr);
//   pps_decoder_parse_pps_str(&dec, text);      // text is modified in place
//   pps_decoder_push(&dec, nullptr);            // enter the (first) object
//   const char* v; pps_decoder_get_string(&dec, "HardwareID", &v);
//   pps_decoder_pop(&dec);
//   pps_decoder_cleanup(&dec);
//
// The top level is an unnamed object holding one object per "@name" group;
// attributes before any object line belong to an unnamed object; groups
// naming the same object merge (later lines win). JSON attributes decode
// into objects and arrays; a deleted attribute has PPS_TYPE_DELETED and
// reads as PPS_DECODER_NOT_FOUND. Getters check the type (a number is not a
// string); integers convert only from whole numbers in range. Every call returns 0
// (PPS_DECODER_OK) on success. Strings returned stay valid until the
// decoder is cleaned up or parses again.
#pragma once

#include <cstdint>

enum pps_decoder_error_t {
    PPS_DECODER_OK = 0,
    PPS_DECODER_NO_MEMORY,
    PPS_DECODER_PARSE_ERROR,
    PPS_DECODER_NOT_FOUND,
    PPS_DECODER_WRONG_TYPE,
    PPS_DECODER_POP_AT_ROOT,
    PPS_DECODER_CONVERSION_FAILED,  // a number out of the range asked for
    PPS_DECODER_BAD_STATE,          // not initialised, or nothing parsed
};

enum pps_node_type_t {
    PPS_TYPE_NONE = 0,  // no such element (also: past the end of an array)
    PPS_TYPE_NULL,
    PPS_TYPE_BOOL,
    PPS_TYPE_NUMBER,
    PPS_TYPE_STRING,
    PPS_TYPE_ARRAY,
    PPS_TYPE_OBJECT,
    PPS_TYPE_DELETED,  // "-name" in the text
    PPS_TYPE_UNKNOWN,
};

struct pps_decoder_impl;

struct pps_decoder_t {
    pps_decoder_impl* impl = nullptr;
};

pps_decoder_error_t pps_decoder_initialize(pps_decoder_t* decoder, char* text);
void pps_decoder_cleanup(pps_decoder_t* decoder);
pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* text);
pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* text);

// Enter the named object or array of the current object; a null name
// enters the current element (the first object at the top level, or the
// next element of an array).
pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name);
pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder);

// A null name reads the next element of the current array (or object); the
// element is taken even when its type is wrong, so a loop always moves on.
pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                           const char** value);
pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name, int* value);
pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name, int64_t* value);
pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name, double* value);
pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name, bool* value);
pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name);
// Name of the current object or array (the "@name" of a group, or the
// member pushed into), or nullptr at the top and for unnamed ones.
const char* pps_decoder_name(pps_decoder_t* decoder);
