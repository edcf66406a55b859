// The eight settings of diag/config as the screen offers them, and the
// values radio_tavora acts on; anything else is refused before it is
// written, since the daemon would ignore it or read it as something else.
#pragma once

#include <string>

// Empty when `value` is one the daemon applies for setting `name`;
// otherwise the reason, for the user.
std::string CheckSetting(const std::string& name, const std::string& value);

// The settings' names, space-separated, in the order the daemon applies them.
std::string SettingNames();
