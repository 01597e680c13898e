#include "reports/Markup.h"

namespace ombrelo::markup {

std::string escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\t':
        case '\n':
        case '\r': out += c; break;
        default:
            if (static_cast<unsigned char>(c) >= 0x20) out += c;
        }
    }
    return out;
}

} // namespace ombrelo::markup
