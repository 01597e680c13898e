// Assets: the window's static files (HTML, CSS, JavaScript modules), compiled
// into the program from src/ui/web.
#pragma once

#include <span>
#include <string_view>

namespace ombrelo::ui {

struct Asset {
    std::string_view path;  // "/index.html", "/js/app.js"
    std::string_view contentType;
    std::string_view bytes;
};

std::span<const Asset> assets();

// The file served at `path` ("/" is the index), or null.
const Asset* findAsset(std::string_view path);

} // namespace ombrelo::ui
