// DefaultCatalog: the categories and rules a new database starts with, the
// English names of the default categories, and the recognition of a default
// category whatever language it was stored in. Constant data; any thread.
#pragma once

#include "classify/Rule.h"

#include <span>
#include <string>
#include <string_view>

namespace ombrelo {

struct DefaultCategory {
    std::string_view name;     // the default (French) name, also the key
    std::string_view english;  // its English localisation
    std::string_view color;
    std::string_view symbol;
    bool isDistraction;
};

struct DefaultRule {
    Rule::Field field;
    std::string_view pattern;
    std::string_view category;  // a DefaultCategory name
};

// The ten default categories, in table order.
std::span<const DefaultCategory> defaultCategories();
// The 75 default rules, in table order; the program's own rule first.
std::span<const DefaultRule> defaultRules();
// Simple app rules for the ids a Linux desktop reports (lower-case .desktop
// ids), seeded after the 75 on Linux.
std::span<const DefaultRule> linuxDefaultRules();

// The name a default category is stored under: its localisation in the current
// language, or the default name itself.
std::string localizedCategoryName(std::string_view defaultName);

// The default name when `name` is a default category's name or its
// localisation; otherwise `name` unchanged.
std::string defaultKey(std::string_view name);

} // namespace ombrelo
