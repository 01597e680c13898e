// The activity rows a running tracker wrote, read back from its SQLite file.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ombrelo::testing {

struct Row {
    std::string bundleID, appName, title, kind, path;
    double start = 0, end = 0;
    std::string domain;
};

// In start order; none when the file cannot be read yet.
std::vector<Row> rows(const std::filesystem::path& database);
// One line per row, for failure messages.
std::string describe(const std::vector<Row>& list);

} // namespace ombrelo::testing
