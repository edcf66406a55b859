#include "tools/devsim/answers.h"

#include <cctype>
#include <optional>
#include <string_view>

namespace devsim {

namespace {

using nlohmann::json;

// The leaf paths of the LTE APN tree the OMA-DM client answers for:
// "./ManagedObjects/ConnMO/LTE/APN/<entry>/Setting/<node>".
constexpr std::string_view kLeafPrefix = "./ManagedObjects/ConnMO/LTE/APN/";
constexpr std::string_view kLeafSetting = "/Setting/";

// Entry and node of a leaf path; false for any other text.
bool ParseLeafPath(std::string_view path, std::string* entry, std::string* node) {
    if (path.substr(0, kLeafPrefix.size()) != kLeafPrefix) return false;
    path.remove_prefix(kLeafPrefix.size());
    size_t digits = 0;
    while (digits < path.size() && digits < 4 &&
           std::isdigit(static_cast<unsigned char>(path[digits])))
        ++digits;
    if (digits == 0) return false;
    *entry = std::string(path.substr(0, digits));
    path.remove_prefix(digits);
    if (path.substr(0, kLeafSetting.size()) != kLeafSetting) return false;
    path.remove_prefix(kLeafSetting.size());
    if (path.empty() || path.size() > 32) return false;
    for (char c : path)
        if (!std::isalpha(static_cast<unsigned char>(c))) return false;
    *node = std::string(path);
    return true;
}

std::string ErrLine(int err) {
    return "err:n:" + std::to_string(err);
}

// A member of an object as an int, `fallback` when absent or not a number.
int IntMember(const json& object, const char* name, int fallback) {
    if (!object.is_object()) return fallback;
    auto it = object.find(name);
    if (it == object.end() || !it->is_number_integer()) return fallback;
    return it->get<int>();
}

const json& Section(const json& state, const char* name) {
    static const json empty = json::object();
    auto it = state.find(name);
    return it != state.end() && it->is_object() ? *it : empty;
}

std::string StringMember(const json& object, const char* name) {
    if (!object.is_object()) return "";
    auto it = object.find(name);
    return it != object.end() && it->is_string() ? it->get<std::string>() : "";
}

Answer Unknown() {
    Answer answer;
    answer.lines = {ErrLine(kUnknownRequestErr)};
    return answer;
}

// An err number configured for this message, if any.
std::optional<int> Refusal(const json& service, const std::string& msg) {
    auto refuse = service.find("refuse");
    if (refuse == service.end() || !refuse->is_object()) return std::nullopt;
    auto it = refuse->find(msg);
    if (it == refuse->end() || !it->is_number_integer()) return std::nullopt;
    return it->get<int>();
}

}  // namespace

Answer AnswerConnectionService(const json& state, const Request& request) {
    const json& service = Section(state, "connection_service");
    if (request.msg != "get_apn_setting" && request.msg != "set_apn_setting") return Unknown();
    Answer answer;
    answer.delay_ms = IntMember(service, "delay_ms", 0);
    if (std::optional<int> err = Refusal(service, request.msg)) {
        answer.lines = {ErrLine(*err)};
        return answer;
    }
    std::string name = StringMember(request.dat_json, "name");
    if (name.empty()) {
        answer.lines = {ErrLine(kUnknownRequestErr)};
        return answer;
    }
    const json& apns = Section(service, "apns");
    if (request.msg == "get_apn_setting") {
        if (!apns.contains(name) || !apns[name].is_string()) {
            answer.lines = {ErrLine(kUnknownRequestErr)};
            return answer;
        }
        json dat = {{"name", name}, {"APN", apns[name]}};
        answer.lines = {"dat:json:" + dat.dump()};
        return answer;
    }
    auto apn = request.dat_json.find("APN");
    if (apn == request.dat_json.end() || !apn->is_string()) {
        answer.lines = {ErrLine(kUnknownRequestErr)};
        return answer;
    }
    // The new APN holds from the moment the answer goes out.
    answer.patch = {{"connection_service", {{"apns", {{name, *apn}}}}}};
    if (Section(state, "pdns").contains(name)) answer.patch["pdns"][name]["apn"] = *apn;
    if (name == "internet") answer.patch["omadm"]["apns"]["3"]["Name"] = *apn;
    answer.patch_delay_ms = answer.delay_ms;
    return answer;
}

Answer AnswerOmadm(const json& state, const Request& request) {
    const json& service = Section(state, "omadm");
    if (request.msg != "get_leaf_node") return Unknown();
    Answer answer;
    answer.delay_ms = IntMember(service, "delay_ms", 0);
    int missing = IntMember(service, "missing_err", 2);
    std::string entry;
    std::string node;
    if (!ParseLeafPath(request.dat, &entry, &node)) {
        answer.lines = {ErrLine(missing)};
        return answer;
    }
    const json& errors = Section(service, "errors");
    std::string key = entry + "/" + node;
    if (errors.contains(key) && errors[key].is_number_integer()) {
        answer.lines = {ErrLine(errors[key].get<int>())};
        return answer;
    }
    const json& apns = Section(service, "apns");
    auto apn = apns.find(entry);
    if (apn == apns.end() || !apn->is_object() || !apn->contains(node) ||
        !(*apn)[node].is_string()) {
        answer.lines = {ErrLine(missing)};
        return answer;
    }
    json dat = {{"value", (*apn)[node]}};
    answer.lines = {"dat:json:" + dat.dump()};
    return answer;
}

Answer AnswerRadioControl(const json& state, const Request& request) {
    const json& service = Section(state, "radio_control");
    if (request.msg != "configure_rats") return Unknown();
    Answer answer;
    auto setting = request.dat_json.is_object() ? request.dat_json.find("enabled_technologies")
                                                : request.dat_json.end();
    if (!request.dat_json.is_object() || setting == request.dat_json.end() ||
        !setting->is_number_integer()) {
        answer.lines = {ErrLine(kUnknownRequestErr)};
        return answer;
    }
    int technologies = setting->get<int>();
    auto refused = service.find("refuse");
    if (refused != service.end() && refused->is_array()) {
        for (const json& value : *refused) {
            if (value.is_number_integer() && value.get<int>() == technologies) {
                answer.lines = {ErrLine(IntMember(service, "refuse_err", kUnknownRequestErr))};
                return answer;
            }
        }
    }
    answer.patch = {{"status_persistent", {{"enabled_technologies", technologies}}}};
    answer.patch_delay_ms = IntMember(service, "delay_ms", 0);
    return answer;
}

}  // namespace devsim
