// What each served control object answers, decided from the live state
// (the scenario as changed since) alone, so the rules can be tested
// without a broker. The scenario's header says what each one expects.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/devsim/request.h"

namespace devsim {

struct Answer {
    // Reply attribute lines after res and id ("dat:json:{...}", "err:n:5").
    std::vector<std::string> lines;
    // The reply is sent this long after the request.
    int delay_ms = 0;
    // Merged over the live state (null: nothing changes) this long after
    // the request; the objects it touches are republished then.
    nlohmann::json patch;
    int patch_delay_ms = 0;
};

// The number an answer carries in `err` for a request it does not know.
inline constexpr int kUnknownRequestErr = 22;

// /pps/services/cds/vesta/control: get_apn_setting, set_apn_setting.
Answer AnswerConnectionService(const nlohmann::json& state, const Request& request);
// /pps/services/omadm/radio/control: get_leaf_node.
Answer AnswerOmadm(const nlohmann::json& state, const Request& request);
// /pps/services/radioctrl/modem0/control: configure_rats.
Answer AnswerRadioControl(const nlohmann::json& state, const Request& request);

}  // namespace devsim
