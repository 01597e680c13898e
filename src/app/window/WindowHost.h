// WindowHost: the main window served from a main loop — the API over the
// loop's model and the server on 127.0.0.1:"uiPort" — and the one-time
// addresses that open it. `ombrelo run` hosts it beside capture;
// `ombrelo ui --serve` hosts it alone.
//
// Main loop thread.
#pragma once

#include "app/ServedModel.h"
#include "app/window/WindowAPI.h"
#include "ui/WindowServer.h"

#include <asio/io_context.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace ombrelo {

class WindowHost {
public:
    WindowHost(asio::io_context& io, WindowAPI::Parts parts);

    // The port "uiPort" names: 8474 when it is unset or outside 1024–65535;
    // 0, any free port (`ombrelo ui` asks the tracker for the address anyway).
    static std::uint16_t port(const Preferences& preferences);

    // Serves on `port` (0: any free one). Throws std::system_error when it
    // cannot be bound (logged), leaving nothing running.
    std::uint16_t start(std::uint16_t port);
    void stop() { server_.stop(); }
    bool running() const { return server_.running(); }

    // The address that opens the window on `page` once; nothing when not serving.
    std::optional<std::string> link(Page page);

private:
    WindowAPI api_;
    ui::WindowServer server_;
};

// "Port 8474 indisponible : …", with a hint when another process serves it.
std::string windowPortUnavailable(std::uint16_t port, const std::error_code& error);

} // namespace ombrelo
