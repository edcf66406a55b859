// Line parser of PPS text: one line per call, cut in place.
#include "platform/pps/ppsparse.h"

#include <cstring>

namespace {

bool Listed(const char* const* names, const char* name) {
    if (names == nullptr) return true;
    for (; *names != nullptr; ++names) {
        if (std::strcmp(*names, name) == 0) return true;
    }
    return false;
}

// Cuts the next line out of the text (skipping empty ones); nullptr at the end.
char* NextLine(char** cursor) {
    char* p = *cursor;
    while (*p == '\n') ++p;
    if (*p == '\0') {
        *cursor = p;
        return nullptr;
    }
    char* end = std::strchr(p, '\n');
    if (end != nullptr) {
        *end = '\0';
        *cursor = end + 1;
    } else {
        *cursor = p + std::strlen(p);
    }
    return p;
}

pps_status_t ParseLine(char* line, pps_attrib_t* info) {
    // Object lines: "@name", "+@name", "-@name", "#@name".
    const char* marks = "+-#";
    pps_status_t object_kinds[] = {PPS_OBJECT_CREATED, PPS_OBJECT_DELETED, PPS_OBJECT_TRUNCATED};
    pps_status_t kind = PPS_OBJECT;
    char* name = nullptr;
    if (line[0] == '@') {
        name = line + 1;
    } else if (line[0] != '\0' && std::strchr(marks, line[0]) != nullptr && line[1] == '@') {
        kind = object_kinds[std::strchr(marks, line[0]) - marks];
        name = line + 2;
    }
    if (name != nullptr) {
        if (*name == '\0') return PPS_ERROR;
        info->obj_name = name;
        return kind;
    }
    if (line[0] == '-') {
        if (line[1] == '\0') return PPS_ERROR;
        info->attr_name = line + 1;
        return PPS_ATTRIBUTE_DELETED;
    }
    // "name:encoding:value"; the value may hold further colons.
    char* colon1 = std::strchr(line, ':');
    if (colon1 == nullptr || colon1 == line) return PPS_ERROR;
    char* colon2 = std::strchr(colon1 + 1, ':');
    if (colon2 == nullptr) return PPS_ERROR;
    *colon1 = '\0';
    *colon2 = '\0';
    info->attr_name = line;
    info->encoding = colon1 + 1;
    info->value = colon2 + 1;
    return PPS_ATTRIBUTE;
}

}  // namespace

pps_status_t ppsparse(char** ppsdata, const char* const* objnames, const char* const* attrnames,
                      pps_attrib_t* info, int /*parse_flags*/) {
    if (ppsdata == nullptr || *ppsdata == nullptr || info == nullptr) return PPS_ERROR;
    for (;;) {
        info->attr_name = info->encoding = info->value = nullptr;
        char* line = NextLine(ppsdata);
        info->line = line;
        if (line == nullptr) return PPS_END;
        pps_status_t kind = ParseLine(line, info);
        if (kind == PPS_ERROR) return kind;
        // Filters: skip lines whose object or attribute is not listed.
        bool attribute = kind == PPS_ATTRIBUTE || kind == PPS_ATTRIBUTE_DELETED;
        if (attribute ? Listed(attrnames, info->attr_name) : Listed(objnames, info->obj_name)) {
            return kind;
        }
    }
}
