#include "capture/PrivacyRules.h"

#include "support/Fold.h"
#include "support/Settings.h"

#include <algorithm>

namespace ombrelo {

namespace {

std::string normalDomain(std::string_view text) {
    std::string domain = lowerASCII(trim(text));
    if (domain.starts_with("*.")) domain.erase(0, 2);
    if (domain.starts_with('.')) domain.erase(0, 1);
    if (domain.ends_with('.')) domain.pop_back();
    return domain;
}

} // namespace

bool PrivacyRules::domainCovers(std::string_view rule, std::string_view domain) {
    std::string covered = normalDomain(rule), candidate = normalDomain(domain);
    if (covered.empty() || candidate.size() < covered.size()) return false;
    if (candidate == covered) return true;
    // A sub-domain: the rule preceded by a dot, so "mybank.fr" is not "bank.fr".
    return candidate.ends_with(covered) && candidate[candidate.size() - covered.size() - 1] == '.';
}

const PrivacyRules::Lists& PrivacyRules::lists() const {
    std::uint64_t generation = preferences_.generation();
    if (generation == generation_) return lists_;
    generation_ = generation;
    lists_ = {};
    for (const std::string& app : preferences_.get(settings::privateApps))
        if (!trim(app).empty()) lists_.apps.push_back(lowerASCII(trim(app)));
    for (const std::string& domain : preferences_.get(settings::privateDomains))
        if (!normalDomain(domain).empty()) lists_.domains.push_back(normalDomain(domain));
    for (const std::string& word : preferences_.get(settings::privateTitleWords))
        if (!fold(trim(word)).empty()) lists_.titleWords.push_back(fold(trim(word)));
    return lists_;
}

bool PrivacyRules::isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                             const std::optional<std::string>& title) const {
    const Lists& rules = lists();
    if (appID && !rules.apps.empty()) {
        std::string id = lowerASCII(trim(*appID));
        if (std::find(rules.apps.begin(), rules.apps.end(), id) != rules.apps.end()) return true;
    }
    if (domain && !rules.domains.empty()) {
        for (const std::string& rule : rules.domains)
            if (domainCovers(rule, *domain)) return true;
    }
    if (title && !rules.titleWords.empty()) {
        std::string folded = fold(*title);
        for (const std::string& word : rules.titleWords)
            if (folded.find(word) != std::string::npos) return true;
    }
    return false;
}

} // namespace ombrelo
