// TextDecoding: the bytes of an imported file as UTF-8 text. Exports are UTF-8,
// with or without a byte-order mark, except those a spreadsheet saved on
// Windows, which are Windows-1252: a file that is not valid UTF-8 is read that
// way, and the caller can say so.
#pragma once

#include <string>
#include <string_view>

namespace ombrelo {

enum class TextEncoding { utf8, windows1252 };

struct DecodedText {
    std::string text;  // UTF-8, without a byte-order mark
    TextEncoding encoding = TextEncoding::utf8;
};

DecodedText decodeText(std::string_view bytes);
// NUL bytes: no text export has them.
bool looksBinary(std::string_view bytes);
bool isValidUTF8(std::string_view bytes);

} // namespace ombrelo
