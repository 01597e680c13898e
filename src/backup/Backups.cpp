#include "backup/Backups.h"

#include "storage/PendingRestore.h"
#include "support/AtomicFile.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "support/Settings.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <set>

namespace ombrelo {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view extension = ".sqlite";
constexpr std::size_t stampLength = std::string_view("2026-11-23-014502").size();

bool newestFirst(const BackupEntry& a, const BackupEntry& b) { return a.takenAt > b.takenAt; }

std::optional<int> number(std::string_view text) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// "2026-11-23-014502" as a local instant.
std::optional<Instant> parseStamp(std::string_view stamp) {
    if (stamp.size() != stampLength || stamp[4] != '-' || stamp[7] != '-' || stamp[10] != '-') return std::nullopt;
    auto year = number(stamp.substr(0, 4)), month = number(stamp.substr(5, 2)), day = number(stamp.substr(8, 2)),
         hour = number(stamp.substr(11, 2)), minute = number(stamp.substr(13, 2)), second = number(stamp.substr(15, 2));
    if (!year || !month || !day || !hour || !minute || !second || *month < 1 || *month > 12 || *day < 1 ||
        *day > 31 || *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    return local::make(*year, *month, *day, *hour, *minute, *second);
}

} // namespace

Retention Retention::fromPreferences(const Preferences& preferences) {
    return {std::max<std::int64_t>(0, preferences.get(settings::backupDays)),
            std::max<std::int64_t>(0, preferences.get(settings::backupMonths))};
}

std::vector<BackupEntry> beyondRetention(const std::vector<BackupEntry>& entries, const Retention& retention) {
    std::vector<BackupEntry> sorted = entries;
    std::sort(sorted.begin(), sorted.end(), newestFirst);
    std::set<Instant> keptDays;
    std::set<Instant, std::greater<>> months;
    for (const BackupEntry& entry : sorted) {
        Instant day = local::startOfDay(entry.takenAt);
        if (keptDays.size() < std::size_t(retention.days) || keptDays.count(day)) keptDays.insert(day);
        months.insert(local::startOfMonth(entry.takenAt));
    }
    std::set<Instant> keptMonths;
    for (Instant month : months) {
        if (keptMonths.size() == std::size_t(retention.months)) break;
        keptMonths.insert(month);
    }
    std::vector<BackupEntry> beyond;
    std::set<Instant> monthsGiven;
    // Oldest first, so that the first backup of a kept month is the one kept.
    for (auto entry = sorted.rbegin(); entry != sorted.rend(); ++entry) {
        Instant month = local::startOfMonth(entry->takenAt);
        bool firstOfKeptMonth = keptMonths.count(month) && monthsGiven.insert(month).second;
        if (!firstOfKeptMonth && !keptDays.count(local::startOfDay(entry->takenAt))) beyond.push_back(*entry);
    }
    std::sort(beyond.begin(), beyond.end(), newestFirst);
    return beyond;
}

Backups::Backups(fs::path database)
    : database_(std::move(database)), folder_(database_.parent_path() / "backups"),
      prefix_(database_.stem().string() + "-") {}

std::optional<BackupEntry> Backups::parse(const fs::directory_entry& file) const {
    std::string name = file.path().filename().string();
    std::string_view rest(name);
    if (!rest.starts_with(prefix_) || !rest.ends_with(extension)) return std::nullopt;
    rest.remove_prefix(prefix_.size());
    rest.remove_suffix(extension.size());
    std::optional<Instant> takenAt = parseStamp(rest.substr(0, stampLength));
    if (!takenAt) return std::nullopt;
    std::string_view reason = rest.substr(stampLength);
    if (!reason.empty() && reason.front() != '-') return std::nullopt;
    // "-forget-2": the copy number of a second backup in the same second is no reason.
    if (std::size_t dash = reason.rfind('-'); dash != std::string_view::npos && number(reason.substr(dash + 1)))
        reason = reason.substr(0, dash);
    std::error_code error;
    std::uintmax_t size = file.file_size(error);
    if (error || !file.is_regular_file(error)) return std::nullopt;
    return BackupEntry{file.path(), *takenAt, std::string(reason.empty() ? reason : reason.substr(1)), size};
}

std::vector<BackupEntry> Backups::list() const {
    std::vector<BackupEntry> entries;
    std::error_code error;
    for (const fs::directory_entry& file : fs::directory_iterator(folder_, error))
        if (std::optional<BackupEntry> entry = parse(file)) entries.push_back(*entry);
    std::sort(entries.begin(), entries.end(), newestFirst);
    return entries;
}

std::vector<BackupEntry> Backups::onDay(Instant day) const {
    std::vector<BackupEntry> entries = list();
    std::erase_if(entries, [&](const BackupEntry& entry) { return !local::sameDay(entry.takenAt, day); });
    return entries;
}

BackupEntry Backups::take(Instant now, std::string_view reason) const {
    std::string name = prefix_ + fileStamp(now) + (reason.empty() ? "" : "-" + std::string(reason));
    // Two backups in one second (a forget right after the daily one) get a number.
    fs::path file = unusedName(folder_ / name, extension);
    BackupContents contents = copyDatabase(database_, file);
    std::error_code error;
    return {file, now, std::string(reason), fs::file_size(file, error), contents};
}

std::vector<BackupEntry> Backups::prune(const Retention& retention) const {
    std::vector<BackupEntry> removed;
    std::optional<fs::path> awaited = scheduledRestore(database_);
    for (const BackupEntry& entry : beyondRetention(list(), retention)) {
        std::error_code error;
        if (awaited && fs::equivalent(entry.file, *awaited, error)) continue;
        if (fs::remove(entry.file, error)) removed.push_back(entry);
    }
    return removed;
}

fs::path Backups::failureFile() const {
    fs::path file = database_;
    file += ".backup-failure";
    return file;
}

void Backups::recordFailure(const BackupFailure& failure) const {
    nlohmann::json entry{{"at", failure.at}, {"message", failure.message}};
    writeFileAtomically(failureFile(), entry.dump() + "\n", 0600);
}

void Backups::clearFailure() const {
    std::error_code error;
    fs::remove(failureFile(), error);
}

std::optional<BackupFailure> Backups::lastFailure() const {
    std::optional<std::string> text = readWholeFile(failureFile());
    if (!text) return std::nullopt;
    nlohmann::json entry = nlohmann::json::parse(*text, nullptr, false);
    if (!entry.is_object()) return std::nullopt;
    return BackupFailure{entry.value("at", 0.0), entry.value("message", "")};
}

} // namespace ombrelo
