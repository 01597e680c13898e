#include "app/commands/ActiveProjectHook.h"

namespace ombrelo::commands {

std::function<void(const Activity&)> activeProjectHook(Catalog& catalog, ProjectStore& projects) {
    return [&catalog, &projects](const Activity& activity) {
        catalog.reload();
        std::optional<Project> active = projects.activeProject();
        catalog.applyActiveProject(active, active ? projects.activeNote() : std::nullopt, activity, projects.projects());
    };
}

} // namespace ombrelo::commands
