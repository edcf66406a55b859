// PPS decoder: the text is cut into lines by ppsparse and built into a small
// tree (root object -> one object per "@name" group -> attributes, with JSON
// attributes expanded); the caller walks it with a stack of cursors.
#include "platform/pps/pps_decoder.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/pps/ppsparse.h"

using Json = nlohmann::ordered_json;

namespace {

constexpr int kMaxJsonDepth = 64;

struct Node {
    pps_node_type_t type = PPS_TYPE_NULL;
    std::string name;  // empty for array elements and the unnamed object
    std::string text;  // PPS_TYPE_STRING
    bool boolean = false;
    bool is_int = false;  // PPS_TYPE_NUMBER: exact integer in `integer`, else `real`
    int64_t integer = 0;
    double real = 0;
    std::vector<Node> kids;  // PPS_TYPE_OBJECT and PPS_TYPE_ARRAY
};

Node MakeNode(pps_node_type_t type, const char* name = "") {
    Node n;
    n.type = type;
    n.name = name;
    return n;
}

struct Cursor {
    const Node* node;
    size_t next = 0;  // element taken by a null name
};

}  // namespace

struct pps_decoder_impl {
    Node root;
    std::vector<Cursor> path;  // empty until a parse succeeds; path[0] is the root
};

namespace {

// Adds a member, replacing an earlier one of the same name (a later line wins).
Node& Put(Node& object, Node member) {
    for (Node& kid : object.kids) {
        if (kid.name == member.name) return kid = std::move(member);
    }
    object.kids.push_back(std::move(member));
    return object.kids.back();
}

bool ParseNumber(const char* s, Node& out) {
    out.type = PPS_TYPE_NUMBER;
    const char* end = s + std::strlen(s);
    auto [p, ec] = std::from_chars(s, end, out.integer);
    // "-0" stays a real number so that its sign survives.
    bool negative_zero = ec == std::errc() && out.integer == 0 && *s == '-';
    if (ec == std::errc() && p == end && !negative_zero) return out.is_int = true;
    auto [q, ec2] = std::from_chars(s, end, out.real);
    return ec2 == std::errc() && q == end && *s != '\0' && std::isfinite(out.real);
}

// Undoes the backslash escapes of the "c" encoding.
bool CUnescape(const char* s, std::string& out) {
    for (; *s != '\0'; ++s) {
        if (*s != '\\') {
            out += *s;
            continue;
        }
        switch (*++s) {
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case '\\':
                out += '\\';
                break;
            default:
                return false;  // unknown escape, or a backslash at the end
        }
    }
    return true;
}

bool FromJson(const Json& j, Node& out, int depth) {
    if (depth > kMaxJsonDepth) return false;
    switch (j.type()) {
        case Json::value_t::null:
            out.type = PPS_TYPE_NULL;
            return true;
        case Json::value_t::boolean:
            out.type = PPS_TYPE_BOOL;
            out.boolean = j.get<bool>();
            return true;
        case Json::value_t::string:
            out.type = PPS_TYPE_STRING;
            out.text = j.get<std::string>();
            return true;
        case Json::value_t::number_integer:
            out.type = PPS_TYPE_NUMBER;
            out.is_int = true;
            out.integer = j.get<int64_t>();
            return true;
        case Json::value_t::number_unsigned:
        case Json::value_t::number_float:
            out.type = PPS_TYPE_NUMBER;
            out.real = j.get<double>();
            if (j.is_number_unsigned() && j.get<uint64_t>() <= INT64_MAX) {
                out.is_int = true;
                out.integer = static_cast<int64_t>(j.get<uint64_t>());
            }
            return std::isfinite(out.real);
        case Json::value_t::object:
        case Json::value_t::array:
            out.type = j.is_object() ? PPS_TYPE_OBJECT : PPS_TYPE_ARRAY;
            for (auto it = j.begin(); it != j.end(); ++it) {
                Node kid;
                if (j.is_object()) kid.name = it.key();
                if (!FromJson(*it, kid, depth + 1)) return false;
                if (j.is_object()) {
                    Put(out, std::move(kid));
                } else {
                    out.kids.push_back(std::move(kid));
                }
            }
            return true;
        default:
            return false;  // binary and discarded (unparsable) values
    }
}

bool ParseJsonValue(const char* text, Node& out) {
    Json j = Json::parse(text, nullptr, false);
    return !j.is_discarded() && FromJson(j, out, 0);
}

// The value of an attribute line, by its encoding.
bool DecodeValue(const char* encoding, const char* value, Node& out) {
    if (std::strcmp(encoding, "n") == 0) return ParseNumber(value, out);
    if (std::strcmp(encoding, "json") == 0) return ParseJsonValue(value, out);
    if (std::strcmp(encoding, "b") == 0) {
        out.type = PPS_TYPE_BOOL;
        out.boolean = std::strcmp(value, "true") == 0;
        return out.boolean || std::strcmp(value, "false") == 0;
    }
    out.type = PPS_TYPE_STRING;
    if (std::strcmp(encoding, "c") == 0) return CUnescape(value, out.text);
    out.text = value;  // "" and encodings this decoder does not know: kept as text
    return true;
}

pps_decoder_error_t BuildTree(char* text, Node& root) {
    root = MakeNode(PPS_TYPE_OBJECT);
    Node* group = nullptr;  // object the attribute lines go to
    bool after_object_deleted = false;
    pps_attrib_t info{};
    char* cursor = text;
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
        if (kind == PPS_END) break;
        if (kind == PPS_ERROR) return PPS_DECODER_PARSE_ERROR;
        if (kind == PPS_OBJECT_DELETED) {
            Put(root, MakeNode(PPS_TYPE_DELETED, info.obj_name));
            group = nullptr;
            after_object_deleted = true;
            continue;
        }
        if (kind == PPS_OBJECT || kind == PPS_OBJECT_CREATED || kind == PPS_OBJECT_TRUNCATED) {
            // Groups of the same object (several deltas) merge, later lines winning.
            group = nullptr;
            for (Node& kid : root.kids) {
                if (kid.name == info.obj_name && kid.type == PPS_TYPE_OBJECT) group = &kid;
            }
            if (group == nullptr) group = &Put(root, MakeNode(PPS_TYPE_OBJECT, info.obj_name));
            continue;
        }
        if (group == nullptr) {
            if (after_object_deleted) return PPS_DECODER_PARSE_ERROR;
            group = &Put(root, MakeNode(PPS_TYPE_OBJECT));
        }
        Node attr = MakeNode(PPS_TYPE_DELETED, info.attr_name);
        if (kind == PPS_ATTRIBUTE && !DecodeValue(info.encoding, info.value, attr)) {
            return PPS_DECODER_PARSE_ERROR;
        }
        Put(*group, std::move(attr));
    }
    return root.kids.empty() ? PPS_DECODER_PARSE_ERROR : PPS_DECODER_OK;
}

template <typename Build>
pps_decoder_error_t Parse(pps_decoder_t* decoder, char* text, Build build) {
    if (decoder == nullptr || decoder->impl == nullptr) return PPS_DECODER_BAD_STATE;
    pps_decoder_impl* d = decoder->impl;
    d->path.clear();
    if (text == nullptr) return PPS_DECODER_PARSE_ERROR;
    try {
        pps_decoder_error_t err = build(text, d->root);
        if (err != PPS_DECODER_OK) {
            d->root = Node{};
            return err;
        }
        d->path.push_back(Cursor{&d->root});
    } catch (const std::bad_alloc&) {
        d->root = Node{};
        return PPS_DECODER_NO_MEMORY;
    }
    return PPS_DECODER_OK;
}

// The element a call names: a member of the current object, or, for a null
// name, the next element (taken, so a loop moves on even past a wrong type).
pps_decoder_error_t Find(pps_decoder_t* decoder, const char* name, bool take, const Node** found) {
    if (decoder == nullptr || decoder->impl == nullptr || decoder->impl->path.empty()) {
        return PPS_DECODER_BAD_STATE;
    }
    Cursor& at = decoder->impl->path.back();
    if (name == nullptr) {
        if (at.next >= at.node->kids.size()) return PPS_DECODER_NOT_FOUND;
        *found = &at.node->kids[at.next];
        if (take) ++at.next;
        return PPS_DECODER_OK;
    }
    if (at.node->type == PPS_TYPE_OBJECT) {
        for (const Node& kid : at.node->kids) {
            if (kid.name == name) {
                *found = &kid;
                return PPS_DECODER_OK;
            }
        }
    }
    return PPS_DECODER_NOT_FOUND;
}

template <typename Read>
pps_decoder_error_t Get(pps_decoder_t* decoder, const char* name, Read read) {
    const Node* node = nullptr;
    pps_decoder_error_t err = Find(decoder, name, true, &node);
    if (err != PPS_DECODER_OK) return err;
    if (node->type == PPS_TYPE_DELETED) return PPS_DECODER_NOT_FOUND;
    return read(*node);
}

template <typename Int>
pps_decoder_error_t GetInteger(pps_decoder_t* decoder, const char* name, Int* value) {
    return Get(decoder, name, [value](const Node& n) {
        if (n.type != PPS_TYPE_NUMBER) return PPS_DECODER_WRONG_TYPE;
        using Limits = std::numeric_limits<Int>;
        if (n.is_int) {
            if (n.integer < Limits::min() || n.integer > Limits::max()) {
                return PPS_DECODER_CONVERSION_FAILED;
            }
            *value = static_cast<Int>(n.integer);
            return PPS_DECODER_OK;
        }
        // A real number converts only when it is a whole number in range.
        if (n.real != std::trunc(n.real) || n.real < static_cast<double>(Limits::min()) ||
            n.real >= -static_cast<double>(Limits::min())) {
            return PPS_DECODER_CONVERSION_FAILED;
        }
        *value = static_cast<Int>(n.real);
        return PPS_DECODER_OK;
    });
}

}  // namespace

pps_decoder_error_t pps_decoder_initialize(pps_decoder_t* decoder, char* text) {
    if (decoder == nullptr) return PPS_DECODER_BAD_STATE;
    decoder->impl = new (std::nothrow) pps_decoder_impl;
    if (decoder->impl == nullptr) return PPS_DECODER_NO_MEMORY;
    return text != nullptr ? pps_decoder_parse_pps_str(decoder, text) : PPS_DECODER_OK;
}

void pps_decoder_cleanup(pps_decoder_t* decoder) {
    if (decoder == nullptr) return;
    delete decoder->impl;
    decoder->impl = nullptr;
}

pps_decoder_error_t pps_decoder_parse_pps_str(pps_decoder_t* decoder, char* text) {
    return Parse(decoder, text, BuildTree);
}

pps_decoder_error_t pps_decoder_parse_json_str(pps_decoder_t* decoder, char* text) {
    // The JSON value stands as the one unnamed object of the top level.
    return Parse(decoder, text, [](char* json, Node& root) {
        root = MakeNode(PPS_TYPE_OBJECT);
        Node value;
        if (!ParseJsonValue(json, value)) return PPS_DECODER_PARSE_ERROR;
        root.kids.push_back(std::move(value));
        return PPS_DECODER_OK;
    });
}

pps_decoder_error_t pps_decoder_push(pps_decoder_t* decoder, const char* name) {
    const Node* node = nullptr;
    pps_decoder_error_t err = Find(decoder, name, true, &node);
    if (err != PPS_DECODER_OK) return err;
    if (node->type != PPS_TYPE_OBJECT && node->type != PPS_TYPE_ARRAY) {
        return PPS_DECODER_WRONG_TYPE;
    }
    try {
        decoder->impl->path.push_back(Cursor{node});
    } catch (const std::bad_alloc&) {
        return PPS_DECODER_NO_MEMORY;
    }
    return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_pop(pps_decoder_t* decoder) {
    if (decoder == nullptr || decoder->impl == nullptr || decoder->impl->path.empty()) {
        return PPS_DECODER_BAD_STATE;
    }
    if (decoder->impl->path.size() == 1) return PPS_DECODER_POP_AT_ROOT;
    decoder->impl->path.pop_back();
    return PPS_DECODER_OK;
}

pps_decoder_error_t pps_decoder_get_string(pps_decoder_t* decoder, const char* name,
                                           const char** value) {
    return Get(decoder, name, [value](const Node& n) {
        if (n.type != PPS_TYPE_STRING) return PPS_DECODER_WRONG_TYPE;
        *value = n.text.c_str();
        return PPS_DECODER_OK;
    });
}

pps_decoder_error_t pps_decoder_get_int(pps_decoder_t* decoder, const char* name, int* value) {
    return GetInteger(decoder, name, value);
}

pps_decoder_error_t pps_decoder_get_int64(pps_decoder_t* decoder, const char* name,
                                          int64_t* value) {
    return GetInteger(decoder, name, value);
}

pps_decoder_error_t pps_decoder_get_double(pps_decoder_t* decoder, const char* name,
                                           double* value) {
    return Get(decoder, name, [value](const Node& n) {
        if (n.type != PPS_TYPE_NUMBER) return PPS_DECODER_WRONG_TYPE;
        *value = n.is_int ? static_cast<double>(n.integer) : n.real;
        return PPS_DECODER_OK;
    });
}

pps_decoder_error_t pps_decoder_get_bool(pps_decoder_t* decoder, const char* name, bool* value) {
    return Get(decoder, name, [value](const Node& n) {
        if (n.type != PPS_TYPE_BOOL) return PPS_DECODER_WRONG_TYPE;
        *value = n.boolean;
        return PPS_DECODER_OK;
    });
}

pps_node_type_t pps_decoder_type(pps_decoder_t* decoder, const char* name) {
    const Node* node = nullptr;
    return Find(decoder, name, false, &node) == PPS_DECODER_OK ? node->type : PPS_TYPE_NONE;
}

const char* pps_decoder_name(pps_decoder_t* decoder) {
    if (decoder == nullptr || decoder->impl == nullptr || decoder->impl->path.size() < 2) {
        return nullptr;
    }
    const std::string& name = decoder->impl->path.back().node->name;
    return name.empty() ? nullptr : name.c_str();
}
