#include "classify/RegexCache.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace ombrelo {

RegexCache& RegexCache::shared() {
    static RegexCache cache;
    return cache;
}

const icu::RegexPattern* RegexCache::expression(std::string_view pattern) {
    std::lock_guard lock(mutex_);
    if (auto found = entries_.find(pattern); found != entries_.end()) return found->second.get();

    ++compilations_;
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    icu::UnicodeString source =
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size())));
    std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(source, UREGEX_CASE_INSENSITIVE, where, status));
    if (U_FAILURE(status)) compiled.reset();
    return entries_.emplace(std::string(pattern), std::move(compiled)).first->second.get();
}

bool RegexCache::search(const icu::RegexPattern& expression, std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString subject =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    std::unique_ptr<icu::RegexMatcher> matcher(expression.matcher(subject, status));
    if (U_FAILURE(status) || !matcher) return false;
    // A pathological pattern must not freeze classification: past the limit the
    // search fails (about a tenth of a second).
    matcher->setTimeLimit(100, status);
    bool found = matcher->find(status);
    return U_SUCCESS(status) && found;
}

std::size_t RegexCache::compilations() const {
    std::lock_guard lock(mutex_);
    return compilations_;
}

} // namespace ombrelo
