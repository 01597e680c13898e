// Fold: case- and diacritic-insensitive comparison keys for UTF-8 text
// ("Réunion" and "REUNION" fold to the same "reunion"). Locale-independent.
#pragma once

#include <string>
#include <string_view>

namespace ombrelo {

// Decomposes, drops combining marks and case-folds. Invalid UTF-8 bytes are
// kept as replacement characters, so folding never fails.
std::string fold(std::string_view text);

// ASCII-only lower-casing, as the database stores identifiers.
std::string lowerASCII(std::string_view text);

// Trims spaces, tabs and line breaks at both ends.
std::string_view trim(std::string_view text);

} // namespace ombrelo
