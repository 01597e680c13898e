#include "ui/Assets.h"

namespace ombrelo::ui {

const Asset* findAsset(std::string_view path) {
    if (path == "/") path = "/index.html";
    for (const Asset& asset : assets())
        if (asset.path == path) return &asset;
    return nullptr;
}

} // namespace ombrelo::ui
