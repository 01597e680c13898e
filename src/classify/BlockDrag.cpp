#include "classify/BlockDrag.h"

#include <charconv>

namespace ombrelo::BlockDrag {

namespace {
constexpr std::string_view blockPrefix = "ombrelo-block:";
constexpr std::string_view idlePrefix = "ombrelo-idle:";
} // namespace

std::string payload(const std::vector<std::int64_t>& ids, bool idle) {
    std::string text(idle ? idlePrefix : blockPrefix);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (i > 0) text += ',';
        text += std::to_string(ids[i]);
    }
    return text;
}

std::optional<Dropped> parse(std::string_view text) {
    Dropped dropped;
    if (text.starts_with(blockPrefix)) text.remove_prefix(blockPrefix.size());
    else if (text.starts_with(idlePrefix)) {
        text.remove_prefix(idlePrefix.size());
        dropped.idle = true;
    } else {
        return std::nullopt;
    }
    while (true) {
        auto cut = text.find(',');
        std::string_view piece = text.substr(0, cut);
        std::int64_t id = 0;
        auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), id);
        if (piece.empty() || error != std::errc() || end != piece.data() + piece.size()) return std::nullopt;
        dropped.ids.push_back(id);
        if (cut == std::string_view::npos) break;
        text.remove_prefix(cut + 1);
    }
    return dropped;
}

} // namespace ombrelo::BlockDrag
