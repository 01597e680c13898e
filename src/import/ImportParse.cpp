#include "import/ImportParse.h"

#include "support/Fold.h"
#include "support/LocalTime.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <cctype>
#include <chrono>
#include <cmath>
#include <vector>

namespace ombrelo::ImportParse {

namespace {

bool digit(char c) { return c >= '0' && c <= '9'; }

// Reads 1 to `most` digits at `i`; nothing when none.
std::optional<int> digits(std::string_view text, std::size_t& i, std::size_t most) {
    std::size_t start = i;
    int value = 0;
    while (i < text.size() && digit(text[i]) && i - start < most) value = value * 10 + (text[i++] - '0');
    if (i == start) return std::nullopt;
    return value;
}

bool validDate(int year, int month, int day) {
    using namespace std::chrono;
    // Checked before std::chrono sees them: its month and day keep one byte, so
    // a month of 260 would pass as 4.
    if (year < 1900 || year > 2200 || month < 1 || month > 12 || day < 1 || day > 31) return false;
    return year_month_day{std::chrono::year{year} / static_cast<unsigned>(month) / static_cast<unsigned>(day)}.ok();
}

struct Parts {
    std::vector<int> numbers;
    std::vector<std::size_t> widths;
    char separator = 0;
};

// "04/03/2024" → 4, 3, 2024 with "/"; nothing unless three groups of digits
// with one separator kind and nothing else.
std::optional<Parts> dateParts(std::string_view text) {
    Parts parts;
    std::size_t i = 0;
    for (int group = 0; group < 3; ++group) {
        std::size_t start = i;
        auto value = digits(text, i, 4);
        if (!value) return std::nullopt;
        parts.numbers.push_back(*value);
        parts.widths.push_back(i - start);
        if (group == 2) break;
        if (i >= text.size() || (text[i] != '-' && text[i] != '/' && text[i] != '.')) return std::nullopt;
        if (parts.separator && parts.separator != text[i]) return std::nullopt;
        parts.separator = text[i++];
    }
    if (i != text.size()) return std::nullopt;
    return parts;
}

std::string_view trimmed(std::string_view text) { return trim(text); }

} // namespace

std::string normalised(std::string_view text) { return fold(trim(text)); }

std::optional<CivilDate> date(std::string_view text, DateOrder order) {
    auto parts = dateParts(trimmed(text));
    if (!parts) return std::nullopt;
    const auto& n = parts->numbers;
    const auto& w = parts->widths;
    CivilDate result;
    if (w[0] == 4) {  // year first: 2024-03-04, 2024/03/04
        if (parts->separator == '.' || w[1] > 2 || w[2] > 2) return std::nullopt;
        result = {n[0], n[1], n[2]};
    } else if (parts->separator != '-' && w[0] <= 2 && w[1] <= 2 && (w[2] == 4 || w[2] == 2)) {
        int year = w[2] == 2 ? 2000 + n[2] : n[2];
        bool monthFirst = order == DateOrder::monthFirst && parts->separator == '/';
        result = monthFirst ? CivilDate{year, n[0], n[1]} : CivilDate{year, n[1], n[0]};
    } else {
        return std::nullopt;
    }
    if (!validDate(result.year, result.month, result.day)) return std::nullopt;
    return result;
}

std::optional<DateOrder> orderShownBy(std::string_view text) {
    std::string_view value = trimmed(text);
    value = value.substr(0, value.find_first_of(" T"));
    auto parts = dateParts(value);
    if (!parts || parts->widths[0] == 4) return std::nullopt;
    int first = parts->numbers[0], second = parts->numbers[1];
    if (first > 12 && second <= 12) return DateOrder::dayFirst;
    if (second > 12 && first <= 12) return DateOrder::monthFirst;
    return std::nullopt;
}

std::optional<int> time(std::string_view text) {
    std::string_view t = trimmed(text);
    std::size_t i = 0;
    auto hours = digits(t, i, 2);
    if (!hours || i >= t.size() || t[i] != ':') return std::nullopt;
    ++i;
    std::size_t minuteStart = i;
    auto minutes = digits(t, i, 2);
    if (!minutes || i - minuteStart != 2) return std::nullopt;
    int seconds = 0;
    if (i < t.size() && t[i] == ':') {
        ++i;
        std::size_t secondStart = i;
        auto s = digits(t, i, 2);
        if (!s || i - secondStart != 2) return std::nullopt;
        seconds = *s;
        if (i < t.size() && t[i] == '.') {  // a fraction of a second is dropped
            ++i;
            while (i < t.size() && digit(t[i])) ++i;
        }
    }
    while (i < t.size() && t[i] == ' ') ++i;
    std::string suffix = fold(t.substr(i));
    suffix.erase(std::remove(suffix.begin(), suffix.end(), '.'), suffix.end());
    int h = *hours;
    if (suffix == "am" || suffix == "pm") {
        if (h < 1 || h > 12) return std::nullopt;
        h = h % 12 + (suffix == "pm" ? 12 : 0);
    } else if (!suffix.empty() || h > 23) {
        return std::nullopt;
    }
    if (*minutes > 59 || seconds > 59) return std::nullopt;
    return h * 3600 + *minutes * 60 + seconds;
}

Instant at(const CivilDate& date, int secondsAfterMidnight) {
    return local::make(date.year, date.month, date.day, secondsAfterMidnight / 3600, secondsAfterMidnight / 60 % 60,
                       secondsAfterMidnight % 60);
}

std::optional<Instant> dateTime(std::string_view text, DateOrder order) {
    std::string_view t = trimmed(text);
    std::size_t cut = t.find_first_of("T ");
    if (cut == std::string_view::npos) return std::nullopt;
    auto day = date(t.substr(0, cut), order);
    if (!day) return std::nullopt;
    std::string_view clock = trimmed(t.substr(cut + 1));
    // A UTC offset after the time: "Z", "+02:00", "-0500".
    std::optional<int> offset;
    if (clock.ends_with('Z')) {
        offset = 0;
        clock.remove_suffix(1);
    } else if (std::size_t sign = clock.find_last_of("+-"); sign != std::string_view::npos && sign >= 5) {
        std::string zone(clock.substr(sign + 1));
        zone.erase(std::remove(zone.begin(), zone.end(), ':'), zone.end());
        if (zone.size() != 4 || !std::all_of(zone.begin(), zone.end(), digit)) return std::nullopt;
        int minutes = std::stoi(zone.substr(0, 2)) * 60 + std::stoi(zone.substr(2));
        offset = (clock[sign] == '-' ? -1 : 1) * minutes * 60;
        clock = clock.substr(0, sign);
    }
    auto seconds = time(clock);
    if (!seconds) return std::nullopt;
    if (!offset) return at(*day, *seconds);
    using namespace std::chrono;
    sys_days civil = year{day->year} / day->month / day->day;
    return static_cast<double>(civil.time_since_epoch().count()) * 86'400 + *seconds - *offset;
}

std::optional<double> number(std::string_view text) {
    std::string t(trimmed(text));
    if (t.empty()) return std::nullopt;
    std::size_t lastComma = t.rfind(','), lastDot = t.rfind('.');
    auto count = [&](char c) { return std::count(t.begin(), t.end(), c); };
    char decimal = 0;
    if (lastComma != std::string::npos && lastDot != std::string::npos) decimal = lastComma > lastDot ? ',' : '.';
    else if (lastComma != std::string::npos && count(',') == 1) decimal = ',';
    else if (lastDot != std::string::npos && count('.') == 1) decimal = '.';
    std::string plain;
    for (char c : t) {
        if (c == decimal) plain += '.';
        else if (c == ',' || c == '.' || c == ' ' || c == '\'') continue;  // grouping
        else if (digit(c)) plain += c;
        else return std::nullopt;
    }
    if (plain.empty() || plain == ".") return std::nullopt;
    return std::strtod(plain.c_str(), nullptr);
}

std::optional<double> duration(std::string_view text) {
    std::string t = fold(trimmed(text));
    if (t.empty()) return std::nullopt;
    if (t.find(':') != std::string::npos) {
        std::vector<int> pieces;
        std::size_t i = 0;
        while (i <= t.size()) {
            auto value = digits(t, i, 9);
            if (!value) return std::nullopt;
            pieces.push_back(*value);
            if (i == t.size()) break;
            if (t[i] != ':') return std::nullopt;
            ++i;
        }
        if (pieces.size() == 3) return pieces[0] * 3600.0 + pieces[1] * 60.0 + pieces[2];
        if (pieces.size() == 2) return pieces[0] * 3600.0 + pieces[1] * 60.0;
        return std::nullopt;
    }
    if (auto hours = number(t)) return *hours * 3600;
    // Numbers with units: 1h30, 90m, 1h 15m, 45 min.
    double seconds = 0;
    bool sawHours = false, any = false;
    std::size_t i = 0;
    while (i < t.size()) {
        while (i < t.size() && t[i] == ' ') ++i;
        if (i == t.size()) break;
        std::size_t start = i;
        while (i < t.size() && (digit(t[i]) || t[i] == ',' || t[i] == '.')) ++i;
        auto value = number(std::string_view(t).substr(start, i - start));
        if (!value) return std::nullopt;
        while (i < t.size() && t[i] == ' ') ++i;
        std::size_t unitStart = i;
        while (i < t.size() && std::isalpha(static_cast<unsigned char>(t[i]))) ++i;
        std::string_view unit = std::string_view(t).substr(unitStart, i - unitStart);
        if (unit == "h") {
            seconds += *value * 3600;
            sawHours = true;
        } else if (unit == "m" || unit == "min") {
            seconds += *value * 60;
        } else if (unit.empty() && sawHours) {
            seconds += *value * 60;
        } else {
            return std::nullopt;
        }
        any = true;
    }
    if (!any) return std::nullopt;
    return seconds;
}

Path splitPath(std::string_view text) {
    static constexpr std::array<std::string_view, 4> separators = {"▸", " > ", "›", " / "};
    for (std::string_view separator : separators) {
        std::size_t found = text.find(separator);
        if (found == std::string_view::npos) continue;
        std::string client(trim(text.substr(0, found)));
        // The rest may hold further levels: they are one project name.
        std::string project;
        std::string_view rest = text.substr(found + separator.size());
        while (!rest.empty()) {
            std::size_t next = rest.find(separator);
            std::string_view piece = trim(rest.substr(0, next));
            if (!piece.empty()) project += (project.empty() ? "" : " ▸ ") + std::string(piece);
            rest = next == std::string_view::npos ? std::string_view() : rest.substr(next + separator.size());
        }
        return {client.empty() ? std::nullopt : std::optional(client), project};
    }
    return {std::nullopt, std::string(trim(text))};
}

std::optional<bool> billable(std::string_view text) {
    // The first twelve of each are the words of the original table; the rest
    // come from the exports of other languages and products.
    static constexpr std::string_view yes[] = {
        "yes", "true", "oui", "1", "billable", "facturable", "billed", "paid", "facture", "paye", "unbilled",
        "a facturer", "ja", "si", "sim", "abrechenbar", "faturavel", "invoiced"};
    static constexpr std::string_view no[] = {
        "no", "false", "non", "0", "non-billable", "not billable", "non facturable", "nein", "nao", "not billed",
        "nicht abrechenbar", "nao faturavel"};
    std::string word = normalised(text);
    if (word.empty()) return std::nullopt;
    if (std::find(std::begin(yes), std::end(yes), word) != std::end(yes)) return true;
    if (std::find(std::begin(no), std::end(no), word) != std::end(no)) return false;
    return std::nullopt;
}

} // namespace ombrelo::ImportParse
