#include "config/config_actions.h"

#include "config/apn_name.h"
#include "config/enabled_rats.h"
#include "config/tethering.h"
#include "config/throttles.h"
#include "diaglog/dm_log_mask.h"
#include "qmi/vendor_requests.h"

namespace {

// The one place where settings join the daemon: one row per attribute,
// in the fixed order of config_actions.h.
const ConfigAction kConfigActions[] = {
    {"diaglogmask", SetTavoraLogMask},
    {"tether_enable", handleTetheringCmd},
    {"ens_value", SetENSValue},
    {"apn_name", SetAPNName},
    {"enabled_rats", SelectRatByName, ClearSkipAndGetRatsState},
    {"evdo_enable", SetEVDOThrottle},
    {"onex_enable", Set1XThrottle},
    {"ims_enable", SetIMSTestMode},
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
