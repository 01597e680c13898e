// Numbers written by people, links and settings, read from the whole text:
// anything left over means no number at all.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace ombrelo {

// "42", "+42", "-42", within the range of `Integer`.
template <typename Integer = std::int64_t>
std::optional<Integer> integerText(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty() || text.front() == '+') return std::nullopt;
    Integer value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// "15", "1.5", "+2", "-0.5": decimal notation only (no exponent, no "inf").
inline std::optional<double> decimalText(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty() || text.front() == '+') return std::nullopt;
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

} // namespace ombrelo
