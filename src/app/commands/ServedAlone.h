// ServedAlone: what `ombrelo mcp serve` and `ombrelo ui --serve` answer from
// while no tracker runs: the stores on the session's database and the served
// model over them. Live state (the project in progress, focus, the pause) is
// written where a tracker started later, or running now, takes it in.
#pragma once

#include "app/ServedModel.h"
#include "app/Session.h"
#include "focus/FocusController.h"

#include <asio/io_context.hpp>

#include <functional>
#include <optional>
#include <string>

namespace ombrelo::commands {

class ServedAlone {
public:
    // `open` and `windowLink`: the window, where this process serves it.
    ServedAlone(Session& session, asio::io_context& io, std::function<void(Page)> open = {},
                std::function<std::optional<std::string>(Page)> windowLink = {});

    Catalog catalog;
    ProjectStore projects;
    FocusController focus;
    Controls controls;
    ServedModel model;
};

} // namespace ombrelo::commands
