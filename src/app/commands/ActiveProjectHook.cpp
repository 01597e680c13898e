#include "app/commands/ActiveProjectHook.h"

namespace ombrelo::commands {

std::function<void(const Activity&)> activeProjectHook(Catalog& catalog, ProjectStore& projects, Database& db) {
    // Another process's edit shows as a new data version; re-reading the rules
    // only then keeps a month of replay from reloading them at every row.
    return [&catalog, &projects, &db, seen = db.dataVersion()](const Activity& activity) mutable {
        if (std::int64_t version = db.dataVersion(); version != seen) {
            seen = version;
            catalog.reload();
        }
        std::optional<Project> active = projects.activeProject();
        catalog.applyActiveProject(active, active ? projects.activeNote() : std::nullopt, activity, projects.projects());
    };
}

} // namespace ombrelo::commands
