#include "app/commands/ServedAlone.h"

#include "app/commands/ClassifyArguments.h"
#include "app/commands/ProjectArguments.h"
#include "reports/Format.h"

namespace ombrelo::commands {

ServedAlone::ServedAlone(Session& session, asio::io_context& io, std::function<void(Page)> open,
                         std::function<std::optional<std::string>(Page)> windowLink)
    : catalog(openCatalog(session)),
      projects(openProjects(session)),
      focus(session.database(), session.preferences(), session.clock()),
      controls({.projects = projects,
                .focus = focus,
                .preferences = session.preferences(),
                .clock = session.clock(),
                .open = std::move(open),
                .windowLink = std::move(windowLink)}),
      model({.io = io,
             .activities = session.activities(),
             .catalog = catalog,
             .projects = projects,
             .controls = controls,
             .clock = session.clock(),
             .currency = Format::currency(session.preferences())}) {
    focus.start();
}

} // namespace ombrelo::commands
