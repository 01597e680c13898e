#include "import/CSVReader.h"

#include <algorithm>

namespace ombrelo::CSVReader {

char separator(std::string_view text) {
    std::string_view first = text.substr(0, text.find_first_of("\r\n"));
    auto semicolons = std::count(first.begin(), first.end(), ';');
    auto commas = std::count(first.begin(), first.end(), ',');
    return semicolons > commas ? ';' : ',';
}

void eachRow(std::string_view text, const std::function<void(std::vector<std::string>&)>& take) {
    char sep = separator(text);
    std::vector<std::string> row;
    std::string field;
    bool quoted = false;
    bool any = false;  // the record has begun
    auto endField = [&] {
        row.push_back(std::move(field));
        field.clear();
    };
    auto endRecord = [&] {
        endField();
        take(row);
        row.clear();
        any = false;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (quoted) {
            if (c != '"') {
                field += c;
            } else if (i + 1 < text.size() && text[i + 1] == '"') {
                field += '"';
                ++i;
            } else {
                quoted = false;
            }
            continue;
        }
        any = true;
        if (c == '"') {
            quoted = true;
        } else if (c == sep) {
            endField();
        } else if (c == '\r' || c == '\n') {
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            endRecord();
        } else {
            field += c;
        }
    }
    if (any || quoted || !field.empty() || !row.empty()) endRecord();
}

std::vector<std::vector<std::string>> rows(std::string_view text) {
    std::vector<std::vector<std::string>> result;
    eachRow(text, [&](std::vector<std::string>& row) { result.push_back(std::move(row)); });
    return result;
}

} // namespace ombrelo::CSVReader
