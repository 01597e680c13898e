// Assignment: a correction stored for one activity (a row of the `assignment`
// table): a project and/or category chosen by hand, the active project's claim,
// a note, or the on-device model's category. At most one per activity.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

// Values of `assignment.source`.
namespace source {
inline constexpr std::string_view manual = "manual";  // project and category override everything
inline constexpr std::string_view active = "active";  // the active project; category stays the rules'
inline constexpr std::string_view note = "note";      // only a note
inline constexpr std::string_view ai = "ai";          // the model's category; project from the rules
} // namespace source

struct Assignment {
    std::int64_t activityID = 0;
    std::optional<std::int64_t> projectID;
    std::optional<std::int64_t> categoryID;
    std::string source;
    std::optional<std::string> note;

    bool operator==(const Assignment&) const = default;
};

} // namespace ombrelo
