#include "import/TextDecoding.h"

#include <cstdint>

namespace ombrelo {

namespace {

// Windows-1252's 0x80–0x9F; the rest of the upper half is Latin-1. Undefined
// bytes become U+FFFD.
constexpr char32_t windows1252High[32] = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0xFFFD,
    0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A,
    0x0153, 0xFFFD, 0x017E, 0x0178};

void appendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

} // namespace

bool isValidUTF8(std::string_view bytes) {
    std::size_t i = 0;
    while (i < bytes.size()) {
        auto c = static_cast<unsigned char>(bytes[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        int extra = (c >> 5) == 0x6 ? 1 : (c >> 4) == 0xE ? 2 : (c >> 3) == 0x1E ? 3 : -1;
        if (extra < 0 || i + static_cast<std::size_t>(extra) >= bytes.size()) return false;
        std::uint32_t code = c & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k) {
            auto next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF.
        if ((extra == 1 && code < 0x80) || (extra == 2 && code < 0x800) || (extra == 3 && code < 0x10000) ||
            (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
            return false;
        i += static_cast<std::size_t>(extra) + 1;
    }
    return true;
}

bool looksBinary(std::string_view bytes) { return bytes.find('\0') != std::string_view::npos; }

DecodedText decodeText(std::string_view bytes) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (bytes.starts_with(byteOrderMark)) bytes.remove_prefix(byteOrderMark.size());
    if (isValidUTF8(bytes)) return {std::string(bytes), TextEncoding::utf8};
    DecodedText decoded{{}, TextEncoding::windows1252};
    decoded.text.reserve(bytes.size() + bytes.size() / 8);
    for (char byte : bytes) {
        auto c = static_cast<unsigned char>(byte);
        appendUTF8(decoded.text, c < 0x80 ? c : c < 0xA0 ? windows1252High[c - 0x80] : c);
    }
    return decoded;
}

} // namespace ombrelo
