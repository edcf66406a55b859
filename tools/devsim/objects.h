// The plain objects devsim publishes, rendered from the live state as
// attribute lines in the order they are first written.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace devsim {

inline constexpr const char* kDeviceInfoPath = "/pps/system/nvram/deviceinfo";
inline constexpr const char* kStatusPersistentPath =
    "/pps/services/radioctrl/modem0/status_persistent";
inline constexpr const char* kConnectionStatusPath = "/pps/services/cds/vesta/status";
inline constexpr const char* kInterfacesDir = "/pps/services/networking/interfaces/";

// name -> "name:enc:value", in order.
using Attributes = std::vector<std::pair<std::string, std::string>>;
// path -> its attributes.
using RenderedObjects = std::map<std::string, Attributes>;

// One attribute line for a JSON value: strings plain ("name::v"), booleans
// "b", integers "n", anything else (and strings holding a newline) "json".
std::string AttributeLine(const std::string& name, const nlohmann::json& value);

// Every object the state describes. Members that cannot name an attribute
// or an object (empty, holding ':' or '/', ...) are left out.
RenderedObjects RenderObjects(const nlohmann::json& state);

}  // namespace devsim
