// ActiveProjectHook: what the capture loop runs for each activity it records
// (ActivityTracker::onRecorded): the active project claims the activity, unless
// it is a distraction, an absence or corrected by hand (Catalog::
// applyActiveProject). Installed by `run` and `replay`.
//
// Each call first takes in changes made by other processes: the active project
// chosen or stopped by `ombrelo work`/`ombrelo stop` (through the shared
// settings) and rules or categories edited by `ombrelo rules`/`ombrelo
// categories` (a catalogue reload when the database shows another connection's
// commit, which keeps its match cache when the rules are unchanged). Main loop
// thread, like the tracker.
#pragma once

#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "storage/Activity.h"

#include <functional>

namespace ombrelo::commands {

// The callback; `catalog` and `projects` must outlive it. Failures are logged
// by the catalogue and never interrupt capture.
std::function<void(const Activity&)> activeProjectHook(Catalog& catalog, ProjectStore& projects, Database& db);

} // namespace ombrelo::commands
