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

void jsonWithList(nlohmann::json document, std::string_view listKey, std::size_t count,
                  const std::function<nlohmann::json(std::size_t)>& item, std::ostream& out) {
    if (count == 0) {
        document[std::string(listKey)] = nlohmann::json::array();
        json(document, out);
        return;
    }
    // The document printed with a marker for the list, then the items where
    // it stands, each indented one level deeper than the list's key. The key
    // and its quotes are part of what is looked for: no text value can hold
    // them unescaped.
    constexpr std::string_view placeholder = R"("\u0001")";  // "\x01" as dump() writes it
    document[std::string(listKey)] = "\x01";
    std::string text = document.dump(2);
    std::string marker = nlohmann::json(listKey).dump() + ": " + std::string(placeholder);
    std::size_t at = text.find(marker) + marker.size() - placeholder.size();
    std::size_t lineStart = text.rfind('\n', at) + 1;
    std::string indent(text.find_first_not_of(' ', lineStart) - lineStart + 2, ' ');
    out << std::string_view(text).substr(0, at) << '[';
    for (std::size_t i = 0; i < count; ++i) {
        std::string one = item(i).dump(2);
        out << (i ? ",\n" : "\n") << indent;
        for (char c : one) {
            out << c;
            if (c == '\n') out << indent;
        }
    }
    out << '\n' << std::string_view(indent).substr(2) << ']'
        << std::string_view(text).substr(at + placeholder.size()) << '\n';
}

void field(std::string_view label, std::string_view value, std::ostream& out) {
    constexpr std::size_t column = 22;
    std::size_t w = width(label);
    out << label << ' ' << std::string(w + 1 < column ? column - w - 1 : 1, ' ') << value << '\n';
}

} // namespace ombrelo::output
