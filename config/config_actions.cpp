#include "config/config_actions.h"

#include "config/enabled_rats.h"
#include "diaglog/dm_log_mask.h"
#include "qmi/vendor_requests.h"

namespace {

// The one place where settings join the daemon: one row per attribute,
// in the fixed order of config_actions.h. A setting not built yet has no
// row; its attribute is then ignored.
const ConfigAction kConfigActions[] = {
    {"diaglogmask", SetTavoraLogMask},
    // tether_enable: handleTetheringCmd joins here.
    {"ens_value", SetENSValue},
    // apn_name:      SetAPNName joins here.
    {"enabled_rats", SelectRatByName, ClearSkipAndGetRatsState},
    // evdo_enable:   SetEVDOThrottle joins here.
    // onex_enable:   Set1XThrottle joins here.
    // ims_enable:    SetIMSTestMode joins here.
};

std::span<const ConfigAction> test_actions;
bool use_test_actions = false;

}  // namespace

std::span<const ConfigAction> ConfigActions() {
    if (use_test_actions) return test_actions;
    return kConfigActions;
}

void SetConfigActionsForTest(std::span<const ConfigAction> actions) {
    test_actions = actions;
    use_test_actions = !actions.empty();
}
