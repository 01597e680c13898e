// Commands: one registration function per command of the `ombrelo` program, all
// with one signature and listed in one table. A command parses its options, asks
// the services for data and renders it as text or JSON; nothing else.
#pragma once

#include <CLI/CLI.hpp>

namespace ombrelo {

class Session;

namespace commands {

using Registration = void (*)(CLI::App& program, Session& session);

void status(CLI::App& program, Session& session);
void run(CLI::App& program, Session& session);
void replay(CLI::App& program, Session& session);
void clients(CLI::App& program, Session& session);
void projects(CLI::App& program, Session& session);
void work(CLI::App& program, Session& session);
void stop(CLI::App& program, Session& session);
void active(CLI::App& program, Session& session);
void categories(CLI::App& program, Session& session);
void rules(CLI::App& program, Session& session);
void corrections(CLI::App& program, Session& session);  // assign, note, unassign
void activities(CLI::App& program, Session& session);   // activities, explain
void summary(CLI::App& program, Session& session);
void timeline(CLI::App& program, Session& session);
void search(CLI::App& program, Session& session);
void manual(CLI::App& program, Session& session);
void billing(CLI::App& program, Session& session);  // billing mark, clear, totals
void live(CLI::App& program, Session& session);     // pause, resume, focus, break, open
void forget(CLI::App& program, Session& session);
void report(CLI::App& program, Session& session);
void holidays(CLI::App& program, Session& session);
void import(CLI::App& program, Session& session);  // import FILE, import list, import undo
void mcp(CLI::App& program, Session& session);  // mcp serve, enable, disable, token, config
void backup(CLI::App& program, Session& session);  // backup, backups, restore
void window(CLI::App& program, Session& session);  // ui
void browser(CLI::App& program, Session& session);  // browser-host, browser install, browser uninstall
void gnomeExtension(CLI::App& program, Session& session);  // gnome-extension install, uninstall

inline constexpr Registration all[] = {status, run, replay, clients, projects, work, stop, active,
                                       categories, rules, corrections, activities, summary, timeline, search,
                                       manual, billing, report, holidays, import, live, forget, backup, mcp, window, browser,
                                       gnomeExtension};

} // namespace commands
} // namespace ombrelo
