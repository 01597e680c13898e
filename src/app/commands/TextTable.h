// TextTable: rows printed in aligned columns for a terminal. Widths count code
// points, so accented names line up; the last column is not padded.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace ombrelo::output {

class TextTable {
public:
    explicit TextTable(std::vector<std::string> headers) : headers_(std::move(headers)) {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    bool empty() const { return rows_.empty(); }
    // Writes the header line then every row, columns two spaces apart.
    void print(std::ostream& out) const;

private:
    std::vector<std::string> headers_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace ombrelo::output
