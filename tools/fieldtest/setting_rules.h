// The eight settings of diag/config as the screen offers them, and the
// values radio_tavora acts on; anything else is refused before it is
// written, since the daemon would ignore it or read it as something else.
#pragma once

#include <string>
#include <vector>

// Empty when `value` is one the daemon applies for setting `name`;
// otherwise the reason, for the user.
std::string CheckSetting(const std::string& name, const std::string& value);

// The settings' names, space-separated, in the order the daemon applies them.
std::string SettingNames();

// The same names as a list, for a screen's form.
std::vector<std::string> SettingNameList();

// The values a setting takes, for a screen's menu; empty for the free text
// of apn_name (and for an unknown name).
std::vector<std::string> SettingChoices(const std::string& name);
