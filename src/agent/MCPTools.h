// MCPTools: what agents can do through the agent server — the protocol
// handshake, "ping", the catalogue of nine tools and their calls: read tracked
// time (the same queries as `summary`, `timeline` and `search --json`), list
// projects, read and change the project in progress, reassign recorded time,
// start a focus session.
//
// A tool that fails still answers: its message comes back as a result flagged
// as an error, in the interface language, for the agent to show. Tool names,
// parameters and result keys never change with the language.
//
// Lives on the main loop with the objects it is given; holds no state of its
// own between calls.
#pragma once

#include "agent/MCPServer.h"
#include "agent/TimeQueries.h"
#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "classify/Workspace.h"
#include "control/Controls.h"
#include "storage/ActivityStore.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace ombrelo {

class MCPTools {
public:
    struct Parts {
        Workspace& workspace;
        ProjectStore& projects;
        Catalog& catalog;
        ActivityStore& activities;
        Controls& controls;
        TimeQueries& queries;
        std::string currency;  // the user's currency code, named in the instructions
    };

    explicit MCPTools(Parts parts) : parts_(std::move(parts)) {}

    // The result of a JSON-RPC request (one with an "id"), or its error for an
    // unknown method.
    MCPServer::Outcome handle(const nlohmann::json& message);
    // One tool's result object. Throws ToolError with the message for the agent.
    nlohmann::json call(std::string_view name, const nlohmann::json& arguments);

    // The nine tool definitions, in the language of the interface.
    static nlohmann::json definitions();
    std::string instructions() const;

private:
    nlohmann::json initialize(const nlohmann::json& params) const;
    nlohmann::json callResult(const nlohmann::json& params);
    nlohmann::json listProjects() const;
    nlohmann::json active();
    nlohmann::json setActiveProject(const nlohmann::json& arguments);
    nlohmann::json stopActiveProject();
    nlohmann::json assignTime(const nlohmann::json& arguments);
    nlohmann::json startFocus(const nlohmann::json& arguments);
    // A project id (integer, or a text of digits) or a name, as links name them.
    Project findProject(const nlohmann::json& value) const;
    std::vector<Classified> targets(const nlohmann::json& arguments);

    Parts parts_;
};

} // namespace ombrelo
