// ppsparse: splits PPS text into lines, one call per line, in place.
//
//   char* cursor = text;
//   pps_attrib_t info{};
//   for (;;) {
//       pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
//       if (kind == PPS_END || kind == PPS_ERROR) break;
//       ... info.obj_name / info.attr_name / info.encoding / info.value ...
//   }
//
// Lines: "@name" object, "+@name" object created, "-@name" object deleted,
// "#@name" object truncated, "name:encoding:value" attribute, "-name"
// attribute deleted. The text is cut into NUL-terminated pieces that
// `info` points at; an empty line is skipped; a line that fits no kind is
// PPS_ERROR and parsing stops there.
#pragma once

enum pps_status_t {
    PPS_ERROR = -1,
    PPS_END = 0,
    PPS_OBJECT,
    PPS_OBJECT_CREATED,
    PPS_OBJECT_DELETED,
    PPS_OBJECT_TRUNCATED,
    PPS_ATTRIBUTE,
    PPS_ATTRIBUTE_DELETED,
};

struct pps_attrib_t {
    char* obj_name = nullptr;   // object of the last object line seen (or nullptr)
    char* attr_name = nullptr;  // attribute lines and deletions
    char* encoding = nullptr;   // "" for strings, "n", "b", "json", "c", ...
    char* value = nullptr;      // attribute lines
    char* line = nullptr;       // start of the line just parsed
};

// objnames and attrnames filter nothing when null (the daemon passes null);
// parse_flags is reserved (0).
pps_status_t ppsparse(char** ppsdata, const char* const* objnames, const char* const* attrnames,
                      pps_attrib_t* info, int parse_flags);
