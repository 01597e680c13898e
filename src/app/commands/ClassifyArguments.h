// ClassifyArguments: what the categories, rules, assignment and activity
// commands read from their arguments: categories by id or name, activity id
// lists and periods, rule fields, operators, conditions, time windows and
// weekdays. A malformed value fails with status 1 and a message naming the
// option; a category or activity that does not exist fails with status 2.
// Either way nothing has been written yet.
#pragma once

#include "classify/Catalog.h"
#include "classify/Rule.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrelo {
class Session;
}

namespace ombrelo::commands {

// The session's catalogue (opening the database; seeding it when new).
// Throws CommandFailure (status 2) when the database cannot be read.
Catalog openCatalog(Session& session);

// The category `text` names: its id, or its name ignoring case and accents (a
// default category also by its name in the other language). Throws
// CommandFailure (status 2) when none.
Category requireCategory(const Catalog& catalog, std::string_view text);

// "none", "aucun", "aucune": the way to say "no project" or "no category".
bool isNone(std::string_view text);
// "oui"/"yes"/"true"/"1" or "non"/"no"/"false"/"0"; status 1 otherwise.
bool yesNoOption(std::string_view option, std::string_view text);

// "12,13,15" → ids; status 1 for anything but positive decimal integers.
std::vector<std::int64_t> idsOption(std::string_view text);
// Status 2 naming the first id with no activity.
void requireActivities(Session& session, const std::vector<std::int64_t>& ids);

// "YYYY-MM-DD" → start of that local day; "YYYY-MM-DDTHH:MM" → that instant.
Instant dayOption(std::string_view option, std::string_view text);
Instant dateTimeOption(std::string_view option, std::string_view text);

Rule::Field fieldOption(std::string_view text);
// A raw operator value (any case) or "simple" for a rule without operator.
std::optional<Rule::Operator> operatorOption(std::string_view text);
// "FIELD:OP:PATTERN", the pattern taking the rest (it may hold colons).
Rule::Condition conditionOption(std::string_view text);
// "09:00-12:00", "9-12", "22:00-02:00" (a night window); end "24:00" is
// midnight. Both bounds in minutes after midnight.
std::pair<int, int> hoursOption(std::string_view text);
// "lun,mer,ven", "mon-fri", "samedi,dimanche" → calendar weekdays (1 = Sunday).
std::set<int> weekdaysOption(std::string_view text);

// Short texts for people: "09:00–12:00", "lun, mer".
std::string windowText(int startMinute, int endMinute);
std::string weekdaysText(const std::set<int>& weekdays);

} // namespace ombrelo::commands
