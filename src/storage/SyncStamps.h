// What the sync triggers stamp on a row written without them, in SQL. Writers
// that insert many rows stamp them in the INSERT itself: a complete row skips
// the triggers' rewrite of it, which costs more than the insert.
#pragma once

#include <string_view>

namespace ombrelo::syncStamp {

inline constexpr std::string_view now = "((julianday('now') - 2440587.5) * 86400.0)";
inline constexpr std::string_view freshUid = "lower(hex(randomblob(16)))";
inline constexpr std::string_view device = "(SELECT value FROM sync_meta WHERE key = 'device')";

} // namespace ombrelo::syncStamp
