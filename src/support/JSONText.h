// JSONText: JSON written for people to read, the same way wherever a document
// is shown as text (export files, agents' tool results): two-space indentation,
// keys sorted, and " : " between a key and its value.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace ombrelo {

// Without a final line feed. Invalid UTF-8 in strings is replaced, never thrown.
std::string prettyJSON(const nlohmann::json& value);

} // namespace ombrelo
