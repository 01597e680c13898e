#include "platform/TrackerRows.h"

#include <sqlite3.h>

namespace ombrelo::testing {

namespace {

std::string column(sqlite3_stmt* statement, int index) {
    const unsigned char* text = sqlite3_column_text(statement, index);
    return text ? reinterpret_cast<const char*>(text) : "";
}

} // namespace

std::vector<Row> rows(const std::filesystem::path& database) {
    std::vector<Row> result;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return result;
    }
    sqlite3_busy_timeout(db, 2000);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT bundle_id, app_name, title, kind, path, start, end, domain FROM activity "
                           "ORDER BY start, id",
                           -1, &statement, nullptr) == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW)
            result.push_back({column(statement, 0), column(statement, 1), column(statement, 2), column(statement, 3),
                              column(statement, 4), sqlite3_column_double(statement, 5),
                              sqlite3_column_double(statement, 6), column(statement, 7)});
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return result;
}

std::string describe(const std::vector<Row>& list) {
    std::string shown;
    for (const Row& row : list)
        shown += row.kind + " " + row.bundleID + " \"" + row.title + "\" " + std::to_string(row.start) + " +" +
                 std::to_string(row.end - row.start) + "s\n";
    return shown;
}

} // namespace ombrelo::testing
