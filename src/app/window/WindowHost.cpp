#include "app/window/WindowHost.h"

#include "support/L10n.h"
#include "support/Settings.h"

#include <asio/post.hpp>
#include <fmt/format.h>

namespace ombrelo {

WindowHost::WindowHost(asio::io_context& io, WindowAPI::Parts parts)
    : api_(std::move(parts)),
      server_([this](const ui::Call& call) { return api_.handle(call); },
              [&io](std::function<void()> task) { asio::post(io, std::move(task)); }) {}

std::uint16_t WindowHost::port(const Preferences& preferences) {
    std::optional<std::int64_t> value = preferences.integer(settings::uiPort);
    if (value && (*value == 0 || (*value >= 1024 && *value <= 65535))) return static_cast<std::uint16_t>(*value);
    return ui::WindowServer::defaultPort;
}

std::uint16_t WindowHost::start(std::uint16_t port) { return server_.start(port); }

std::optional<std::string> WindowHost::link(Page page) {
    if (!server_.running()) return std::nullopt;
    return server_.openingLink(rawValue(page));
}

std::string windowPortUnavailable(std::uint16_t port, const std::error_code& error) {
    return fmt::format(fmt::runtime(L10n::text("Port {} indisponible : {}. Le suivi sert peut-être déjà l'interface "
                                               "(« ombrelo ui »), sinon changez le réglage uiPort.",
                                               "Port {} unavailable: {}. The tracker may be serving the interface "
                                               "already (`ombrelo ui`); otherwise change the uiPort setting.")),
                       port, error.message());
}

} // namespace ombrelo
