// BlockDrag: the text a block of time carries when it is dragged onto a project
// ("ombrelo-block:812,813,815", or "ombrelo-idle:…" for an absence), and the
// reading of such a text at the drop. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo::BlockDrag {

struct Dropped {
    std::vector<std::int64_t> ids;
    bool idle = false;  // the block is an absence

    bool operator==(const Dropped&) const = default;
};

// The payload of a block made of `ids`, `idle` when its first activity is idle.
std::string payload(const std::vector<std::int64_t>& ids, bool idle);

// The ids and idle flag of a payload; nothing for any other text (a foreign
// drag), including a payload with a piece that is not a decimal integer.
std::optional<Dropped> parse(std::string_view text);

} // namespace ombrelo::BlockDrag
