// Output: where commands write. Human text goes through `line`; --json output
// through `json`, one document per command, so scripts can rely on it.
#pragma once

#include <cstddef>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string_view>

namespace ombrelo::output {

inline void json(const nlohmann::json& document, std::ostream& out = std::cout) { out << document.dump(2) << '\n'; }

// json(document) with `document[listKey]` a list of `count` items made one at
// a time by `item(i)`: the same text, without the whole list in memory.
void jsonWithList(nlohmann::json document, std::string_view listKey, std::size_t count,
                  const std::function<nlohmann::json(std::size_t)>& item, std::ostream& out = std::cout);

inline void line(std::string_view text, std::ostream& out = std::cout) { out << text << '\n'; }

// A label and its value, aligned for a terminal.
void field(std::string_view label, std::string_view value, std::ostream& out = std::cout);

} // namespace ombrelo::output
