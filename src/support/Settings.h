// Settings: the preference keys the program reads, with their defaults.
#pragma once

#include "support/Preferences.h"

namespace ombrelo::settings {

// Interface language: "fr" selects French, any other value English; unset, the
// locale environment decides.
inline const PreferenceKey<std::string> language{"language", ""};
inline const PreferenceKey<std::string> currency{"currency", ""};

// Public holidays: a country code ("fr", "gb"…; empty: the locale's region
// decides) and, in France, the two extra days of Alsace-Moselle.
inline const PreferenceKey<std::string> holidayCountry{"holidayCountry", ""};
inline const PreferenceKey<bool> holidayAlsaceMoselle{"holidayAlsaceMoselle", false};

// Capture loop.
inline const PreferenceKey<double> idleSeconds{"idleSeconds", 300};
inline const PreferenceKey<bool> workHoursEnabled{"workHoursEnabled", false};
inline const PreferenceKey<std::int64_t> workHoursStart{"workHoursStart", 8};
inline const PreferenceKey<std::int64_t> workHoursEnd{"workHoursEnd", 19};
inline const PreferenceKey<std::vector<std::int64_t>> workDays{"workDays", {2, 3, 4, 5, 6}};
inline constexpr const char* pausedUntil = "pausedUntil";  // seconds since 1970; absent = not paused

// Privacy: time in these is recorded as private, without title, site or path.
inline const PreferenceKey<std::vector<std::string>> privateApps{"privateApps", {}};
inline const PreferenceKey<std::vector<std::string>> privateDomains{"privateDomains", {}};
inline const PreferenceKey<std::vector<std::string>> privateTitleWords{"privateTitleWords", {}};

// Focus: minutes of continuous work before a break is proposed (0: never);
// absent, an hour.
inline constexpr const char* breakEveryMinutes = "breakEveryMinutes";

// The agent server: on or off, and its port on 127.0.0.1 (8473 when unset or
// outside 1024–65535).
inline constexpr const char* mcpEnabled = "mcpEnabled";
inline constexpr const char* mcpPort = "mcpPort";

// The window's port on 127.0.0.1 (8474 when unset or outside 1024–65535; 0:
// any free port).
inline constexpr const char* uiPort = "uiPort";

// Backups: every backup of this many most recent days that have one (0: no
// automatic backup), and the first of each of this many most recent months.
inline const PreferenceKey<std::int64_t> backupDays{"backupDays", 14};
inline const PreferenceKey<std::int64_t> backupMonths{"backupMonths", 12};

// The active project ("Projet en cours").
inline constexpr const char* activeProject = "activeProject";            // project id
inline constexpr const char* activeProjectSince = "activeProjectSince";  // seconds since 1970
inline constexpr const char* activeProjectNote = "activeProjectNote";

} // namespace ombrelo::settings
