#include "app/commands/TextTable.h"

#include <algorithm>
#include <ostream>

namespace ombrelo::output {

namespace {
std::size_t width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}
} // namespace

void TextTable::print(std::ostream& out) const {
    std::vector<std::size_t> widths(headers_.size(), 0);
    auto measure = [&](const std::vector<std::string>& row) {
        for (std::size_t i = 0; i < row.size() && i < widths.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
    };
    measure(headers_);
    for (const auto& row : rows_) measure(row);

    auto line = [&](const std::vector<std::string>& row) {
        std::string text;
        for (std::size_t i = 0; i < row.size() && i < widths.size(); ++i) {
            text += row[i];
            if (i + 1 < row.size()) text += std::string(widths[i] - width(row[i]) + 2, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out << text << '\n';
    };
    line(headers_);
    for (const auto& row : rows_) line(row);
}

} // namespace ombrelo::output
