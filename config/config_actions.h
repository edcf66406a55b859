// The settings of diag/config and the actions that apply them, in the
// order a delta applies them: diaglogmask, tether_enable, ens_value,
// apn_name, enabled_rats, evdo_enable, onex_enable, ims_enable.
#pragma once

#include <span>

// Applies the text of one attribute; the text is valid only during the call.
using ConfigActionFn = void (*)(const char* text);
// Runs for a delta that does not carry the attribute as a string.
using ConfigAbsentFn = void (*)();

struct ConfigAction {
    const char* attribute;
    ConfigActionFn apply;
    ConfigAbsentFn when_absent = nullptr;
};

// The actions built so far, in the fixed order above (or the table a test
// put in their place).
std::span<const ConfigAction> ConfigActions();

// Tests only: replaces the table until called again with an empty span.
void SetConfigActionsForTest(std::span<const ConfigAction> actions);
