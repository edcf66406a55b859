// What every screen of the daemon does through the PPS broker: ask for a
// report by writing msg/id to the daemon's server object, wait for the
// reply with the same id, and read the report's status object; read and
// change diag/config. Used by the terminal screen and the web screen.
#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

namespace fieldtest {

inline constexpr const char* kControlPath = "/pps/services/radioctrl/modem0/diag/control";
inline constexpr const char* kConfigPath = "/pps/services/radioctrl/modem0/diag/config";
// diag/config as the screen creates it: its owner and the screen's group
// (the creator's primary group, e.g. `radio`) may write, nobody else may
// even read it, so no other local user can change or wipe the settings.
inline constexpr unsigned kConfigMode = 0660;
// How long a settings write waits for the broker to confirm it.
inline constexpr int kConfirmWaitMs = 5000;
inline constexpr const char* kStatusDir = "/pps/services/radioctrl/modem0/diag/";

struct ReportInfo {
    const char* name;
    const char* status_object;
    bool asked = true;  // false: an object read as it stands, with no request
};

// The daemon's eight requests in their order, then the objects read as they
// stand (the DIAG library's counts).
std::span<const ReportInfo> Reports();
const ReportInfo* FindReport(const std::string& name);

struct Attribute {
    std::string name;
    std::string encoding;
    std::string value;
};

// Attribute lines of one PPS message, in order; the object line and
// anything that does not parse are left out.
std::vector<Attribute> ParseAttributes(std::string text);

// One message from an open object, waiting up to `timeout_ms`; empty when
// none came.
std::string ReadMessage(int fd, int timeout_ms);

// The object's current text; empty when it cannot be opened or read.
std::string ReadObject(const std::string& path);

// Sends one request and waits for the reply carrying the same id. Returns
// an error text, empty on success.
std::string Ask(const std::string& report, int request_id, int timeout_ms);

// Asks for `report` when it is asked for, then reads its status object.
// Returns an error text, empty on success.
std::string FetchReport(const ReportInfo& report, int request_id, int timeout_ms,
                        std::vector<Attribute>* attributes);

// Attributes as one JSON object: numbers, booleans and JSON values parsed,
// the rest as strings.
nlohmann::ordered_json ToJson(const std::vector<Attribute>& attrs);

// JSON text of `json`, `indent` as dump takes it. Bytes that are not UTF-8
// (an object can hold anything) are replaced rather than thrown on.
std::string JsonText(const nlohmann::ordered_json& json, int indent = -1);

// Writes "name::value" lines to diag/config as one message (creating it
// with kConfigMode). Returns an error text, empty once the broker has
// confirmed the write (applied and stored).
std::string WriteConfig(const std::vector<std::pair<std::string, std::string>>& settings);
// The same for PPS text already made.
std::string WriteConfigText(const std::string& message);

}  // namespace fieldtest
