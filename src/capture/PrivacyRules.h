// PrivacyRules: decides which time is recorded as private (counted, but without
// title, site, path or address). Reads the user's lists at every question, so a
// change in the settings applies at the next sample:
//   "privateApps"        application ids, whole and case-insensitive;
//   "privateDomains"     a domain covers itself and its sub-domains ("bank.fr"
//                        covers "www.bank.fr", not "mybank.fr");
//   "privateTitleWords"  texts found anywhere in the window title, ignoring case
//                        and accents ("Médical" matches "RENDEZ-VOUS MEDICAL").
// Every desktop back-end answers Desktop::isPrivate through one of these.
// Main loop thread (it reads the thread's Preferences).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

class Preferences;

class PrivacyRules {
public:
    explicit PrivacyRules(const Preferences& preferences) : preferences_(preferences) {}

    // True when any of the three lists excludes these details. Absent values
    // match nothing.
    bool isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                   const std::optional<std::string>& title) const;

    // True when the rule `rule` ("bank.fr", ".bank.fr" or "*.bank.fr") covers
    // `domain`; both are compared in lower case, a final dot ignored.
    static bool domainCovers(std::string_view rule, std::string_view domain);

private:
    // The lists, normalised, re-read only when the settings file changed.
    struct Lists {
        std::vector<std::string> apps, domains, titleWords;
    };
    const Lists& lists() const;

    const Preferences& preferences_;
    mutable Lists lists_;
    mutable std::uint64_t generation_ = 0;
};

} // namespace ombrelo
