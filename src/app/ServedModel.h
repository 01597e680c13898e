// AgentHost: the agent tools on a main loop, with the workspace they read — what
// `ombrelo run` serves agents with when "mcpEnabled" is on, and what
// `ombrelo mcp serve` runs on its own.
//
// The server's thread hands each request to `dispatch()` through `poster()`,
// so the tools run on the loop with the stores, like everything else.
#pragma once

#include "agent/MCPServer.h"
#include "agent/MCPTools.h"
#include "agent/TimeQueries.h"
#include "classify/Workspace.h"

#include <asio/io_context.hpp>

namespace ombrelo {

class AgentHost {
public:
    struct Parts {
        asio::io_context& io;
        ActivityStore& activities;
        Catalog& catalog;
        ProjectStore& projects;
        Controls& controls;
        Clock& clock;
        std::string currency;
    };

    explicit AgentHost(Parts parts);
    AgentHost(const AgentHost&) = delete;
    AgentHost& operator=(const AgentHost&) = delete;

    MCPServer::Dispatch dispatch();
    MCPServer::Poster poster();

private:
    asio::io_context& io_;
    Workspace workspace_;
    TimeQueries queries_;
    MCPTools tools_;
};

} // namespace ombrelo
