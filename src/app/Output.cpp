#include "app/Output.h"

#include <fmt/format.h>

namespace ombrelo::output {

namespace {
// Display width of UTF-8 text, counting code points (accented letters are one).
std::size_t width(std::string_view text) {
    std::size_t n = 0;
    for (unsigned char c : text)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}
} // namespace

void field(std::string_view label, std::string_view value, std::ostream& out) {
    constexpr std::size_t column = 22;
    std::size_t w = width(label);
    out << label << ' ' << std::string(w + 1 < column ? column - w - 1 : 1, ' ') << value << '\n';
}

} // namespace ombrelo::output
