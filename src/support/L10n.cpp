#include "support/L10n.h"

#include "support/Preferences.h"
#include "support/Settings.h"

#include <cstdlib>

namespace ombrelo::L10n {

namespace {

std::string& current() {
    static std::string code = "en";
    return code;
}

std::string fromLocale() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value) continue;
        std::string_view locale(value);
        return std::string(locale.substr(0, locale.find_first_of("_.@")));
    }
    return "en";
}

} // namespace

std::string language() { return current(); }

void setLanguage(std::string code) { current() = std::move(code); }

std::string resolve(const Preferences& preferences) {
    std::string chosen = preferences.get(settings::language);
    return chosen.empty() ? fromLocale() : chosen;
}

bool french() { return current() == "fr"; }

} // namespace ombrelo::L10n
