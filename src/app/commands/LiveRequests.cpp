#include "app/commands/LiveRequests.h"

#include "app/Session.h"
#include "app/commands/ProjectArguments.h"
#include "control/ControlRequest.h"
#include "control/ControlSocket.h"
#include "focus/FocusController.h"

namespace ombrelo::commands {

namespace {

nlohmann::json carryOutHere(Session& session, const nlohmann::json& request) {
    ProjectStore projects = openProjects(session);
    FocusController focus(session.database(), session.preferences(), session.clock());
    focus.start();
    // Without a window the page is only named in the answer, which the command prints.
    Controls controls({.projects = projects, .focus = focus, .preferences = session.preferences(),
                       .clock = session.clock()});
    return ControlRequest::perform(request, controls);
}

} // namespace

nlohmann::json carryOut(Session& session, const nlohmann::json& request) {
    std::optional<nlohmann::json> answer;
    try {
        answer = ControlClient::send(controlSocketFor(session.databasePath()), request);
    } catch (const std::exception& error) {
        throw CommandFailure(exitStatus::failure, error.what());
    }
    if (!answer) answer = carryOutHere(session, request);
    if (!answer->value("ok", false))
        throw CommandFailure(exitStatus::failure, answer->value("error", std::string("?")));
    return *answer;
}

} // namespace ombrelo::commands
