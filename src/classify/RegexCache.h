// RegexCache: the compiled regular expressions of the rules, one process-wide
// instance shared by every thread that classifies. Each pattern is compiled once,
// case-insensitive, with ICU (the same syntax as the platform's regular
// expressions); a pattern that fails to compile is remembered as failed and never
// compiled again. Lookups, insertions and compilation happen under one lock.
// Compiled patterns are immutable and live as long as the process, so the
// pointers handed out stay valid and may be used without the lock.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace ombrelo {

class RegexCache {
public:
    static RegexCache& shared();

    // The compiled expression of `pattern`, or null when it does not compile.
    const icu::RegexPattern* expression(std::string_view pattern);

    // Whether `pattern` compiles (and is cached either way).
    bool compiles(std::string_view pattern) { return expression(pattern) != nullptr; }

    // Whether `expression` finds a match anywhere in `text` (a search, not a
    // whole-string match). A search that runs away (catastrophic backtracking)
    // is cut short and counts as no match. Thread-safe: each call uses its own
    // matcher.
    static bool search(const icu::RegexPattern& expression, std::string_view text);

    // For testing: how many patterns were compiled (successfully or not).
    std::size_t compilations() const;

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };

    mutable std::mutex mutex_;
    // A null entry is a pattern that failed.
    std::unordered_map<std::string, std::unique_ptr<icu::RegexPattern>, Hash, std::equal_to<>> entries_;
    std::size_t compilations_ = 0;
};

} // namespace ombrelo
