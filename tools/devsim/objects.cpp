#include "tools/devsim/objects.h"

#include <cctype>
#include <string_view>

namespace devsim {

namespace {

using nlohmann::json;

bool UsableAttributeName(const std::string& name) {
    // A line starting with one of these would read as an object or a deletion.
    return !name.empty() && std::string_view("-@#+").find(name[0]) == std::string_view::npos &&
           name.find_first_of(":\n") == std::string::npos;
}

// An interface name is one path component of plain characters.
bool UsableObjectName(const std::string& name) {
    if (name.empty() || name.size() > 64 || name == "." || name == "..") return false;
    for (char c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-' && c != '.')
            return false;
    }
    return true;
}

void Add(Attributes* attributes, const std::string& name, const json& value) {
    if (UsableAttributeName(name)) attributes->emplace_back(name, AttributeLine(name, value));
}

const json* Member(const json& state, const char* name) {
    auto it = state.find(name);
    return it != state.end() && it->is_object() ? &*it : nullptr;
}

}  // namespace

std::string AttributeLine(const std::string& name, const json& value) {
    if (value.is_string() && value.get_ref<const std::string&>().find('\n') == std::string::npos)
        return name + "::" + value.get<std::string>();
    if (value.is_boolean()) return name + ":b:" + (value.get<bool>() ? "true" : "false");
    if (value.is_number_integer()) return name + ":n:" + value.dump();
    return name + ":json:" + value.dump();
}

RenderedObjects RenderObjects(const json& state) {
    RenderedObjects objects;
    if (const json* info = Member(state, "deviceinfo")) {
        Attributes& attributes = objects[kDeviceInfoPath];
        for (const auto& [name, value] : info->items()) Add(&attributes, name, value);
    }
    if (const json* persistent = Member(state, "status_persistent")) {
        Add(&objects[kStatusPersistentPath], "configure_rats_state", *persistent);
    }
    if (const json* pdns = Member(state, "pdns")) {
        Attributes& attributes = objects[kConnectionStatusPath];
        for (const auto& [name, pdn] : pdns->items()) {
            if (pdn.is_object()) Add(&attributes, name, pdn);
        }
    }
    if (const json* interfaces = Member(state, "interfaces")) {
        for (const auto& [name, interface] : interfaces->items()) {
            if (!UsableObjectName(name) || !interface.is_object()) continue;
            Attributes& attributes = objects[std::string(kInterfacesDir) + name];
            // Readers take the first attribute as the connected flag.
            auto connected = interface.find("connected");
            Add(&attributes, "connected", connected != interface.end() && *connected == true);
            for (const char* list : {"ip_addresses", "nameservers"}) {
                auto it = interface.find(list);
                Add(&attributes, list, it != interface.end() ? *it : json::array());
            }
        }
    }
    return objects;
}

}  // namespace devsim
