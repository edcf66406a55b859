// devsim's scenario: the phone's other services as the daemon sees them.
// A JSON file merged (RFC 7386 merge patch) over the built-in default, so a
// file names only what it changes; null removes a member of the default.
//
// Published objects (written whole at start and after every change):
//   "deviceinfo":        attributes of /pps/system/nvram/deviceinfo, strings
//                        ({"HardwareID": "0x52c0f9e4"}); null: not published.
//   "status_persistent": /pps/services/radioctrl/modem0/status_persistent:
//                        {"enabled_technologies": 18} is written as
//                        configure_rats_state:json:{"enabled_technologies":18};
//                        null: not published until a configure_rats is taken.
//   "pdns":              /pps/services/cds/vesta/status, one attribute per PDN
//                        (logical name -> {"connected", "apn", "net_if",
//                        "net_if_IPv6"}), written as a JSON attribute.
//   "interfaces":        /pps/services/networking/interfaces/<name>, one object
//                        each: {"connected": bool (written first),
//                        "ip_addresses": [...], "nameservers": [...]}.
//
// Server objects ("serve": false leaves one unopened; "delay_ms" holds the
// answers of the first two back that long, radio control's report):
//   "connection_service": /pps/services/cds/vesta/control.
//       get_apn_setting {name} -> dat {"name", "APN"} from "apns";
//       set_apn_setting {name, APN} stores it in "apns", updates that PDN's
//       "apn" and, for "internet", the OMA-DM leaf 3/Name.
//       "refuse": {"<msg>": err number} answers that request with err only.
//   "omadm": /pps/services/omadm/radio/control.
//       get_leaf_node with dat "./ManagedObjects/ConnMO/LTE/APN/<n>/Setting/<node>"
//       -> dat {"value": "apns"[n][node]}; "errors": {"<n>/<node>": err} answers
//       err instead; a leaf that is not there answers "missing_err".
//   "radio_control": /pps/services/radioctrl/modem0/control.
//       configure_rats with dat {"enabled_technologies": N} is answered at
//       once and, "delay_ms" later, reported in status_persistent.
//       "refuse": [N, ...] settings answered with "refuse_err" and not taken.
//
// "events": [{"at_ms": T, "say": "text", "patch": {...}}]: T ms after start
// (or a reload) the patch is merged over the live state ("pdns",
// "interfaces", "deviceinfo", "status_persistent") and the objects
// republished: a PDN connects or drops, an address changes.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace devsim {

// The built-in scenario: a WCDMA and LTE device with "internet" and
// "carrier_ims" up and their interfaces addressed.
nlohmann::json DefaultScenario();

// The default with the files merged over it in their order (none: the
// default); false with a message when a file cannot be read or is not a
// JSON object.
bool LoadScenario(const std::vector<std::string>& paths, nlohmann::json* scenario,
                  std::string* error);

}  // namespace devsim
