// TextHash: a string hash that also takes string views, so that maps keyed by
// std::string are searched with a view of text read elsewhere, without a copy
// (with std::equal_to<> as the key comparison).
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace ombrelo {

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

} // namespace ombrelo
