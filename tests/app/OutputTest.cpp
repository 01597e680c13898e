// JSON written one list item at a time reads exactly as the whole document
// written at once.
#include "app/Output.h"

#include <gtest/gtest.h>

#include <sstream>

namespace ombrelo {
namespace {

using nlohmann::json;

std::string whole(const json& document) {
    std::ostringstream out;
    output::json(document, out);
    return out.str();
}

std::string streamed(const json& document, const std::string& key) {
    json rest = document;
    rest.erase(key);
    const json& list = document.at(key);
    std::ostringstream out;
    output::jsonWithList(rest, key, list.size(), [&](std::size_t i) { return list[i]; }, out);
    return out.str();
}

TEST(Output, AListWrittenItemByItemIsTheSameText) {
    json item = {{"id", 1}, {"title", "Réunion « équipe »"}, {"tags", {"a", "b"}}, {"note", nullptr}};
    for (const json& document :
         {json{{"from", "2026-10-01"}, {"activities", json::array()}, {"to", "2026-10-31"}},
          json{{"from", "2026-10-01"}, {"activities", {item}}, {"to", "2026-10-31"}},
          json{{"activities", {item, item, {{"nested", {{"deeper", {1, 2}}}}}}}},
          json{{"a", 1}, {"z", {{"activities", {item}}}}, {"activities", {1, 2}}}})
        EXPECT_EQ(streamed(document, "activities"), whole(document));
}

} // namespace
} // namespace ombrelo
