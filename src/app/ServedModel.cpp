#include "app/ServedModel.h"

#include <asio/post.hpp>

namespace ombrelo {

ServedModel::ServedModel(Parts parts)
    : io_(parts.io),
      workspace_(&parts.activities, parts.catalog, parts.projects, parts.clock),
      queries_(workspace_, parts.projects, parts.clock),
      tools_({.workspace = workspace_,
              .projects = parts.projects,
              .catalog = parts.catalog,
              .activities = parts.activities,
              .controls = parts.controls,
              .queries = queries_,
              .currency = std::move(parts.currency)}) {}

MCPServer::Dispatch ServedModel::dispatch() {
    return [this](nlohmann::json message, MCPServer::Completion done) { done(tools_.handle(message)); };
}

MCPServer::Poster ServedModel::poster() {
    return [this](std::function<void()> task) { asio::post(io_, std::move(task)); };
}

} // namespace ombrelo
