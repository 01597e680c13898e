// Classified: an activity with its resolved category, project, manual flag and
// note. The unit every view, total, report and agent tool works on.
#pragma once

#include "billing/Project.h"
#include "classify/Category.h"
#include "storage/Activity.h"

#include <optional>
#include <string>

namespace ombrelo {

struct Classified {
    Activity activity;
    std::optional<Category> category;
    std::optional<Project> project;
    bool manual = false;  // the project was chosen by hand
    std::optional<std::string> note;
};

} // namespace ombrelo
