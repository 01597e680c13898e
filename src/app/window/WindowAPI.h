// WindowAPI: what the main window asks of the program, answered on the main
// loop from the same objects and the same result builders as the command
// line and the agent tools (TimeQueries, MCPTools, the views of the
// commands, ReportQuery), so a total reads the same everywhere.
//
// Reads are GET, changes POST with a JSON object; the answers are JSON (a
// report's file excepted). A bad argument is refused with 400 and the reason
// in the user's language, an unknown id with 404, a path with 404 and a
// method the path does not take with 405.
//
// Main loop thread, with the objects it is given.
#pragma once

#include "app/ServedModel.h"
#include "billing/BillingStore.h"
#include "control/Controls.h"
#include "support/Preferences.h"
#include "ui/WindowServer.h"

#include <functional>
#include <map>
#include <string>
#include <utility>

namespace ombrelo {

class WindowAPI {
public:
    struct Parts {
        ServedModel& model;
        ActivityStore& activities;
        Catalog& catalog;
        ProjectStore& projects;
        Controls& controls;
        Preferences& preferences;
        Clock& clock;
        // Run after a write, before the answer: the tracker takes in what changed.
        std::function<void()> changed = [] {};
    };

    explicit WindowAPI(Parts parts);

    ui::Reply handle(const ui::Call& call);

private:
    using Route = ui::Reply (WindowAPI::*)(const ui::Call&);

    ui::Reply session(const ui::Call&);
    ui::Reply dashboard(const ui::Call&);
    ui::Reply summary(const ui::Call&);
    ui::Reply timeline(const ui::Call&);
    ui::Reply activities(const ui::Call&);
    ui::Reply search(const ui::Call&);
    ui::Reply projectList(const ui::Call&);
    ui::Reply rules(const ui::Call&);
    ui::Reply report(const ui::Call&);
    ui::Reply reportFile(const ui::Call&);
    ui::Reply settings(const ui::Call&);
    ui::Reply agentToken(const ui::Call&);

    ui::Reply setActive(const ui::Call&);
    ui::Reply focus(const ui::Call&);
    ui::Reply pause(const ui::Call&);
    ui::Reply assign(const ui::Call&);
    ui::Reply unassign(const ui::Call&);
    ui::Reply note(const ui::Call&);
    ui::Reply absence(const ui::Call&);
    ui::Reply manual(const ui::Call&);
    ui::Reply split(const ui::Call&);
    ui::Reply saveProject(const ui::Call&);
    ui::Reply archiveProject(const ui::Call&);
    ui::Reply saveClient(const ui::Call&);
    ui::Reply saveRule(const ui::Call&);
    ui::Reply deleteRule(const ui::Call&);
    ui::Reply previewRule(const ui::Call&);
    ui::Reply markBilling(const ui::Call&);
    ui::Reply changeSetting(const ui::Call&);
    ui::Reply newAgentToken(const ui::Call&);

    nlohmann::json projectsByRecentUse();
    nlohmann::json categoryList() const;
    nlohmann::json ruleView(const Rule& rule) const;
    // The rule whose "id" `body` names; 404 when there is none.
    Rule storedRule(const nlohmann::json& body) const;
    nlohmann::json projectWithUse(const Project& project, const std::map<std::int64_t, double>& used) const;
    std::optional<Project> projectArgument(const nlohmann::json& value) const;
    std::string currency() const;

    Parts parts_;
    BillingStore billing_;
    const std::map<std::pair<std::string, std::string>, Route, std::less<>> routes_;
};

} // namespace ombrelo
