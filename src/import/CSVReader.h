// CSVReader: the records of a CSV export. The separator is the semicolon when
// the first line has more semicolons than commas, else the comma; fields may be
// quoted, with the separator and line breaks as data inside quotes and a doubled
// quote as one; records end at LF, CR or CR LF. Never fails: whatever the bytes,
// rows come out (an unclosed quote runs to the end of the text).
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo::CSVReader {

char separator(std::string_view text);
// Each record in turn, without holding the file's rows in memory; `take` may
// move the cells away.
void eachRow(std::string_view text, const std::function<void(std::vector<std::string>&)>& take);
std::vector<std::vector<std::string>> rows(std::string_view text);

} // namespace ombrelo::CSVReader
