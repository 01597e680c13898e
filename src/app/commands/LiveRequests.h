// LiveRequests: how a command changes live state. The request goes to the
// running tracker, which carries it out at once; without a tracker the command
// carries it out itself, on the database and the settings, and the tracker
// takes the state up when it starts.
#pragma once

#include <nlohmann/json.hpp>

namespace ombrelo {
class Session;
}

namespace ombrelo::commands {

// The answer to `request` (ControlRequest.h). Throws CommandFailure (status 2)
// with the reason when it was refused or the tracker did not answer.
nlohmann::json carryOut(Session& session, const nlohmann::json& request);

} // namespace ombrelo::commands
