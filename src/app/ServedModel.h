// ServedModel: what the servers of a main loop answer from — one classified
// workspace (one day cache), the time queries and the agent tools over it —
// shared by the agent server and the window in `ombrelo run`, and used alone
// by `ombrelo mcp serve` and `ombrelo ui --serve`.
//
// A server's thread hands each request to the loop through `poster()`, so
// the tools run on the loop with the stores, like everything else.
#pragma once

#include "agent/MCPServer.h"
#include "agent/MCPTools.h"
#include "agent/TimeQueries.h"
#include "classify/Workspace.h"

#include <asio/io_context.hpp>

namespace ombrelo {

class ServedModel {
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

    explicit ServedModel(Parts parts);
    ServedModel(const ServedModel&) = delete;
    ServedModel& operator=(const ServedModel&) = delete;

    // The agent tools' answer to each JSON-RPC request.
    MCPServer::Dispatch dispatch();
    MCPServer::Poster poster();

    Workspace& workspace() { return workspace_; }
    TimeQueries& queries() { return queries_; }
    MCPTools& tools() { return tools_; }

private:
    asio::io_context& io_;
    Workspace workspace_;
    TimeQueries queries_;
    MCPTools tools_;
};

} // namespace ombrelo
