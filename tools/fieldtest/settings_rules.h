// The eight settings of diag/config and the values the daemon acts on; a
// screen refuses anything else before it is written.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace fieldtest {

// The settings' names, in the order the daemon applies them.
std::span<const char* const> SettingNames();

// The values a setting takes; empty for a free text (apn_name).
std::vector<std::string> SettingChoices(const std::string& name);

// Why `value` is not a value the daemon would act on for `name`; empty when
// it is one.
std::string SettingError(const std::string& name, const std::string& value);

}  // namespace fieldtest
