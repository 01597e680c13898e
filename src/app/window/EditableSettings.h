// EditableSettings: the settings a person changes from the window, each with
// its kind, bounds and label, so that the page is drawn from this list and a
// value is checked here before it is written. A value out of bounds, or of
// the wrong kind, is refused with the reason and nothing is written.
//
// Main loop thread, with the preferences.
#pragma once

#include "support/Preferences.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

class SettingRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

namespace EditableSettings {

// [{"key", "label", "kind", "value", "default", "choices"?, "min"?, "max"?, "unit"?}, …]
// in the order the page shows them; kinds: "bool", "integer", "number",
// "choice", "list", "days".
nlohmann::json list(const Preferences& preferences);

// Writes `value` under `key` and returns the setting as list() shows it.
// Throws SettingRefused for an unknown key or a value it cannot take; an
// empty choice or text removes the key, so its default applies again.
nlohmann::json set(Preferences& preferences, std::string_view key, const nlohmann::json& value);

} // namespace EditableSettings
} // namespace ombrelo
