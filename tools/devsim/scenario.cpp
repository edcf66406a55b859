#include "tools/devsim/scenario.h"

#include "tools/scenario_file.h"

namespace devsim {

nlohmann::json DefaultScenario() {
    // The default matches the daemon's own defaults: the "internet" APN is
    // "vzwinternet" everywhere (connection service and OMA-DM entry 3).
    return nlohmann::json::parse(R"json({
      "deviceinfo": {"HardwareID": "0x52c0f9e4"},
      "status_persistent": {"enabled_technologies": 18},
      "pdns": {
        "carrier_ims":   {"connected": true,  "apn": "vzwims",      "net_if": "rmnet0", "net_if_IPv6": "rmnet0"},
        "carrier_admin": {"connected": false, "apn": "vzwadmin",    "net_if": "rmnet1", "net_if_IPv6": "rmnet1"},
        "internet":      {"connected": true,  "apn": "vzwinternet", "net_if": "rmnet2", "net_if_IPv6": "rmnet2"},
        "carrier_apps":  {"connected": false, "apn": "vzwapp",      "net_if": "rmnet3", "net_if_IPv6": "rmnet3"},
        "tethering":     {"connected": false, "apn": "vzwinternet", "net_if": "rmnet4", "net_if_IPv6": "rmnet4"}
      },
      "interfaces": {
        "rmnet0": {"connected": true, "ip_addresses": ["10.168.4.21/30", "fe80::a1:4/64"],
                   "nameservers": ["10.168.7.1"]},
        "rmnet1": {"connected": false, "ip_addresses": [], "nameservers": []},
        "rmnet2": {"connected": true, "ip_addresses": ["100.66.12.9/29", "fe80::5c:2/64"],
                   "nameservers": ["198.224.166.135", "198.224.167.135"]},
        "rmnet3": {"connected": false, "ip_addresses": [], "nameservers": []},
        "rmnet4": {"connected": false, "ip_addresses": [], "nameservers": []}
      },
      "connection_service": {
        "serve": true,
        "apns": {"carrier_ims": "vzwims", "carrier_admin": "vzwadmin", "internet": "vzwinternet",
                 "carrier_apps": "vzwapp", "tethering": "vzwinternet"},
        "refuse": {},
        "delay_ms": 0
      },
      "omadm": {
        "serve": true,
        "apns": {
          "1": {"Id": "1", "Ip": "IPv6",   "Enabled": "true", "Timer": "0", "Name": "vzwims"},
          "2": {"Id": "2", "Ip": "IPv4v6", "Enabled": "true", "Timer": "0", "Name": "vzwadmin"},
          "3": {"Id": "3", "Ip": "IPv4v6", "Enabled": "true", "Timer": "0", "Name": "vzwinternet"},
          "4": {"Id": "4", "Ip": "IPv4v6", "Enabled": "true", "Timer": "0", "Name": "vzwapp"}
        },
        "errors": {},
        "missing_err": 2,
        "delay_ms": 0
      },
      "radio_control": {
        "serve": true,
        "delay_ms": 200,
        "refuse": [],
        "refuse_err": 22
      },
      "events": []
    })json");
}

bool LoadScenario(const std::vector<std::string>& paths, nlohmann::json* scenario,
                  std::string* error) {
    nlohmann::json merged = DefaultScenario();
    for (const std::string& path : paths) {
        nlohmann::json patch;
        if (!tools::ReadScenarioFile(path, &patch, error)) return false;
        merged.merge_patch(patch);
    }
    *scenario = std::move(merged);
    return true;
}

}  // namespace devsim
