#include "support/Fold.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace ombrelo {

std::string fold(std::string_view text) {
    bool ascii = true;
    for (unsigned char c : text)
        if (c >= 0x80) {
            ascii = false;
            break;
        }
    if (ascii) return lowerASCII(text);

    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    icu::UnicodeString source = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    icu::UnicodeString decomposed = U_SUCCESS(status) ? nfd->normalize(source, status) : source;
    if (U_FAILURE(status)) decomposed = source;

    icu::UnicodeString folded;
    for (int32_t i = 0; i < decomposed.length();) {
        UChar32 c = decomposed.char32At(i);
        i += U16_LENGTH(c);
        if (u_charType(c) == U_NON_SPACING_MARK) continue;
        folded.append(u_foldCase(c, U_FOLD_CASE_DEFAULT));
    }
    std::string out;
    folded.toUTF8String(out);
    return out;
}

std::string lowerASCII(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string_view trim(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n\v\f";
    auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    auto last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

} // namespace ombrelo
