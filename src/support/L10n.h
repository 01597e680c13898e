// L10n: the interface language. French texts when the language is "fr", English
// for any other. Resolved once at start-up from the "language" setting, else the
// locale environment (LC_ALL, LC_MESSAGES, LANG); tests set it directly.
#pragma once

#include <string>
#include <string_view>

namespace ombrelo {
class Preferences;

namespace L10n {

std::string language();
void setLanguage(std::string code);
// The language the settings and the environment ask for, without applying it.
std::string resolve(const Preferences& preferences);
bool french();
// The French or the English text, by the current language.
inline std::string_view text(std::string_view french, std::string_view english) {
    return L10n::french() ? french : english;
}

} // namespace L10n
} // namespace ombrelo
