#include "tools/devsim/request.h"

#include <charconv>
#include <cstring>

#include "platform/pps/ppsparse.h"

namespace devsim {

namespace {

// The id after the last '.' of "control.5"; nullopt when there is none.
std::optional<uint64_t> ClientId(std::string_view object) {
    size_t dot = object.rfind('.');
    if (dot == std::string_view::npos || dot + 1 >= object.size()) return std::nullopt;
    std::string_view digits = object.substr(dot + 1);
    uint64_t id = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), id);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return id;
}

}  // namespace

std::optional<Request> ParseRequest(std::string_view message) {
    // ppsparse cuts in place and stops at the first NUL.
    std::string text(message.substr(0, message.find('\0')));
    char* cursor = text.data();
    pps_attrib_t info{};
    std::optional<Request> request;
    bool any_attribute = false;
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
        if (kind == PPS_END || kind == PPS_ERROR) break;
        if (kind == PPS_OBJECT) {
            if (request) break;  // one request per message
            std::optional<uint64_t> id = ClientId(info.obj_name);
            if (!id) return std::nullopt;
            request.emplace();
            request->object = info.obj_name;
            request->client_id = *id;
            continue;
        }
        if (kind != PPS_ATTRIBUTE || !request) continue;
        any_attribute = true;
        std::string name = info.attr_name;
        std::string encoding = info.encoding;
        std::string value = info.value;
        if (!request->summary.empty()) request->summary += ' ';
        request->summary += name + ":" + encoding + ":" + value;
        if (name == "msg") {
            request->msg = value;
        } else if (name == "id") {
            request->id = value;
        } else if (name == "dat") {
            request->dat = value;
            if (encoding == "json") {
                nlohmann::json parsed = nlohmann::json::parse(value, nullptr, false);
                if (!parsed.is_discarded()) request->dat_json = std::move(parsed);
            }
        }
    }
    if (!request || !any_attribute) return std::nullopt;
    return request;
}

std::string RenderReply(const Request& request, const std::vector<std::string>& lines) {
    std::string text = "@" + request.object + "\n";
    text += "res::" + request.msg + "\n";
    if (!request.id.empty()) text += "id::" + request.id + "\n";
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

}  // namespace devsim
