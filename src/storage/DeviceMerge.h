// DeviceMerge: one timeline out of the activities of several machines.
//
// When the user works on two machines, both record their own rows and sync brings
// them together; summing them would count the same minutes twice. The merge
// resolves every stretch where rows of different devices overlap:
//
//   1. Active time beats idle time: a machine where the user is away never hides
//      another where they are working.
//   2. Between two active rows, the one that began later wins: the user turned to
//      that machine, and the other one merely had not noticed yet.
//   3. Remaining ties go to the device identifier that sorts first, then to the
//      lower row id, so the result never depends on input order.
//
// The winning device keeps all its rows over the stretch (overlaps within one
// device are not this function's business); the other devices' rows are cut
// around it. Pieces keep their row's id and details. A list from a single device
// passes through unchanged.
//
// Worked example: A works 10:00–11:00, B works 10:30–10:45 and is idle
// 10:45–11:30. Result: A 10:00–10:30, B 10:30–10:45, A 10:45–11:00, B idle
// 11:00–11:30.
#pragma once

#include "storage/Activity.h"

#include <vector>

namespace ombrelo {

// Takes and returns activities sorted by start.
std::vector<Activity> mergeDevices(std::vector<Activity> activities);

} // namespace ombrelo
