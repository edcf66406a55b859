// PPS encoder: top-level attribute lines are written as they come; a nested
// object or array is collected as JSON and written as one "json" attribute
// when its outermost end call closes it.
#include "platform/pps/pps_encoder.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Json = nlohmann::ordered_json;

namespace {

struct Frame {
    std::string name;  // attribute name of the outermost frame, member name otherwise
    Json value;
};

}  // namespace

struct pps_encoder_impl {
    bool encode_json = false;
    bool started = false;      // any call made since initialise/reset
    bool object_line = false;  // the first call opened a server-reply object line
    bool failed = false;
    std::string text;         // rendered lines
    std::vector<Frame> open;  // open JSON objects/arrays, outermost first
};

namespace {

bool ValidName(const char* name) {
    return name != nullptr && *name != '\0' && std::strpbrk(name, ":\n") == nullptr;
}

std::string Dump(const Json& j) {
    return j.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Backslash escapes of the "c" encoding.
std::string CEscape(const char* s) {
    std::string out;
    for (; *s != '\0'; ++s) {
        switch (*s) {
            case '\n':
                out += "\\n";
                break;
            case '\\':
                out += "\\\\";
                break;
            default:
                out += *s;
        }
    }
    return out;
}

pps_encoder_error_t Fail(pps_encoder_impl* e, pps_encoder_error_t err) {
    e->failed = true;
    return err;
}

// Places a value: as a member of the innermost open JSON container, or as a
// top-level line "name:encoding:text" (an empty JSON text is the value dumped).
pps_encoder_error_t Add(pps_encoder_t* encoder, const char* name, Json value, const char* encoding,
                        std::string text) {
    if (encoder == nullptr || encoder->impl == nullptr) return PPS_ENCODER_BAD_NESTING;
    pps_encoder_impl* e = encoder->impl;
    e->started = true;
    try {
        if (!e->open.empty()) {
            Json& parent = e->open.back().value;
            if (parent.is_array()) {
                parent.push_back(std::move(value));  // array members have no name
            } else {
                if (name == nullptr) return Fail(e, PPS_ENCODER_BAD_NESTING);
                parent[name] = std::move(value);
            }
            return PPS_ENCODER_OK;
        }
        if (!ValidName(name)) return Fail(e, PPS_ENCODER_BAD_NESTING);
        if (text.empty() && std::strcmp(encoding, "json") == 0) text = Dump(value);
        e->text.append(name).append(":").append(encoding).append(":").append(text).append("\n");
    } catch (const std::bad_alloc&) {
        return Fail(e, PPS_ENCODER_NO_MEMORY);
    }
    return PPS_ENCODER_OK;
}

pps_encoder_error_t Start(pps_encoder_t* encoder, const char* name, Json container) {
    if (encoder == nullptr || encoder->impl == nullptr) return PPS_ENCODER_BAD_NESTING;
    pps_encoder_impl* e = encoder->impl;
    bool in_array = !e->open.empty() && e->open.back().value.is_array();
    bool named_ok = e->open.empty() ? ValidName(name) : name != nullptr;
    if (!in_array && !named_ok) return Fail(e, PPS_ENCODER_BAD_NESTING);
    e->started = true;
    try {
        e->open.push_back(Frame{in_array ? std::string() : name, std::move(container)});
    } catch (const std::bad_alloc&) {
        return Fail(e, PPS_ENCODER_NO_MEMORY);
    }
    return PPS_ENCODER_OK;
}

pps_encoder_error_t End(pps_encoder_t* encoder, bool object) {
    if (encoder == nullptr || encoder->impl == nullptr) return PPS_ENCODER_BAD_NESTING;
    pps_encoder_impl* e = encoder->impl;
    if (e->open.size() <= (e->encode_json ? 1u : 0u)) {
        // The object line of a reply needs no end; one is accepted once.
        if (object && e->object_line) {
            e->object_line = false;
            return PPS_ENCODER_OK;
        }
        return Fail(e, PPS_ENCODER_BAD_NESTING);
    }
    if (e->open.back().value.is_object() != object) return Fail(e, PPS_ENCODER_BAD_NESTING);
    Frame done = std::move(e->open.back());
    e->open.pop_back();
    return Add(encoder, done.name.c_str(), std::move(done.value), "json", "");
}

}  // namespace

pps_encoder_error_t pps_encoder_initialize(pps_encoder_t* encoder, bool encode_json) {
    if (encoder == nullptr) return PPS_ENCODER_BAD_NESTING;
    encoder->impl = new (std::nothrow) pps_encoder_impl;
    if (encoder->impl == nullptr) return PPS_ENCODER_NO_MEMORY;
    encoder->impl->encode_json = encode_json;
    pps_encoder_reset(encoder);
    return PPS_ENCODER_OK;
}

void pps_encoder_cleanup(pps_encoder_t* encoder) {
    if (encoder == nullptr) return;
    delete encoder->impl;
    encoder->impl = nullptr;
}

void pps_encoder_reset(pps_encoder_t* encoder) {
    if (encoder == nullptr || encoder->impl == nullptr) return;
    pps_encoder_impl* e = encoder->impl;
    bool encode_json = e->encode_json;
    *e = pps_encoder_impl{};
    e->encode_json = encode_json;
    // In JSON mode the whole message is one JSON object; it never closes.
    if (e->encode_json) e->open.push_back(Frame{"", Json::object()});
}

pps_encoder_error_t pps_encoder_start_object(pps_encoder_t* encoder, const char* name) {
    if (encoder != nullptr && encoder->impl != nullptr && !encoder->impl->started &&
        !encoder->impl->encode_json) {
        // First call: the object line of a server reply, "@name".
        pps_encoder_impl* e = encoder->impl;
        if (name == nullptr || *name == '\0' || std::strchr(name, '\n') != nullptr) {
            return Fail(e, PPS_ENCODER_BAD_NESTING);
        }
        e->started = e->object_line = true;
        e->text.append("@").append(name).append("\n");
        return PPS_ENCODER_OK;
    }
    return Start(encoder, name, Json::object());
}

pps_encoder_error_t pps_encoder_end_object(pps_encoder_t* encoder) {
    return End(encoder, true);
}

pps_encoder_error_t pps_encoder_start_array(pps_encoder_t* encoder, const char* name) {
    return Start(encoder, name, Json::array());
}

pps_encoder_error_t pps_encoder_end_array(pps_encoder_t* encoder) {
    return End(encoder, false);
}

pps_encoder_error_t pps_encoder_add_string(pps_encoder_t* encoder, const char* name,
                                           const char* value) {
    if (value == nullptr) return pps_encoder_add_null(encoder, name);
    bool multiline = std::strchr(value, '\n') != nullptr;
    return Add(encoder, name, Json(value), multiline ? "c" : "",
               multiline ? CEscape(value) : std::string(value));
}

pps_encoder_error_t pps_encoder_add_int(pps_encoder_t* encoder, const char* name, int32_t value) {
    return pps_encoder_add_int64(encoder, name, value);
}

pps_encoder_error_t pps_encoder_add_int64(pps_encoder_t* encoder, const char* name, int64_t value) {
    return Add(encoder, name, Json(value), "n", std::to_string(value));
}

pps_encoder_error_t pps_encoder_add_double(pps_encoder_t* encoder, const char* name, double value) {
    if (!std::isfinite(value)) {
        if (encoder != nullptr && encoder->impl != nullptr) encoder->impl->failed = true;
        return PPS_ENCODER_INVALID_VALUE;
    }
    // Shortest text that reads back as the same double.
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, value);
    return Add(encoder, name, Json(value), "n", std::string(buf, res.ptr));
}

pps_encoder_error_t pps_encoder_add_bool(pps_encoder_t* encoder, const char* name, bool value) {
    return Add(encoder, name, Json(value), "b", value ? "true" : "false");
}

pps_encoder_error_t pps_encoder_add_null(pps_encoder_t* encoder, const char* name) {
    return Add(encoder, name, Json(nullptr), "json", "null");
}

pps_encoder_error_t pps_encoder_add_json(pps_encoder_t* encoder, const char* name,
                                         const char* json) {
    if (encoder == nullptr || encoder->impl == nullptr) return PPS_ENCODER_BAD_NESTING;
    Json value;
    try {
        if (json != nullptr) value = Json::parse(json, nullptr, false);
    } catch (const std::bad_alloc&) {
        return Fail(encoder->impl, PPS_ENCODER_NO_MEMORY);
    }
    if (json == nullptr || value.is_discarded())
        return Fail(encoder->impl, PPS_ENCODER_INVALID_VALUE);
    // Kept as written unless it spans lines, which the line format cannot carry.
    bool one_line = std::strchr(json, '\n') == nullptr;
    return Add(encoder, name, std::move(value), "json", one_line ? json : "");
}

pps_encoder_error_t pps_encoder_delete_attribute(pps_encoder_t* encoder, const char* name) {
    if (encoder == nullptr || encoder->impl == nullptr) return PPS_ENCODER_BAD_NESTING;
    pps_encoder_impl* e = encoder->impl;
    e->started = true;
    if (!e->open.empty() || !ValidName(name)) return Fail(e, PPS_ENCODER_BAD_NESTING);
    e->text.append("-").append(name).append("\n");
    return PPS_ENCODER_OK;
}

const char* pps_encoder_buffer(const pps_encoder_t* encoder) {
    if (encoder == nullptr || encoder->impl == nullptr) return nullptr;
    pps_encoder_impl* e = encoder->impl;
    if (e->failed) return nullptr;
    if (e->encode_json) {
        if (e->open.size() != 1) return nullptr;
        // Rendered again only when changed, so an earlier pointer stays valid
        // across a call to pps_encoder_length.
        std::string text = Dump(e->open.front().value);
        if (text != e->text) e->text = std::move(text);
        return e->text.c_str();
    }
    return e->open.empty() ? e->text.c_str() : nullptr;
}

int pps_encoder_length(const pps_encoder_t* encoder) {
    const char* buf = pps_encoder_buffer(encoder);
    return buf != nullptr ? static_cast<int>(encoder->impl->text.size()) : 0;
}
