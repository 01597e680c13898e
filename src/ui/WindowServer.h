// WindowServer: the main window, a web application served on 127.0.0.1 to
// the user's browser. Static files need nothing; everything else goes
// through a gate, because any local program and any web page in that browser
// can reach the port too:
//
//   403  a Host other than 127.0.0.1:<port> or localhost:<port> (DNS rebinding)
//   405  a method other than GET and POST
//   /open?ticket=…&page=…  trades a ticket (WindowSessions) for the session
//        cookie and sends the browser on to the page, with the page's token
//        in the address's fragment, which never reaches a server; a ticket
//        used, expired or unknown gets 403
//   /api/…  401 without a session cookie and its token in X-Ombrelo-Token;
//        a POST needs besides an Origin of this server (403) and a JSON body
//        (415 for another type, 400 for what does not parse as an object)
//   404  any other path
//
// Every answer forbids framing and inline scripts (Content-Security-Policy),
// sniffing and referrers, and allows no other origin (no CORS headers at all).
// Sizes and time-outs are the listener's (http::Limits, RequestParser).
//
// API calls are handed to the main loop, where `dispatch` answers them.
// Construct, start, stop and destroy from one thread (the main loop's).
#pragma once

#include "http/Listener.h"
#include "ui/WindowSessions.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo::ui {

// One call of the window's API.
struct Call {
    std::string method;                                     // "GET" or "POST"
    std::string path;                                       // "/api/timeline", without the query
    std::map<std::string, std::string, std::less<>> query;  // decoded
    nlohmann::json body = nlohmann::json::object();         // a POST's object

    // The query parameter `name`, when given and not empty.
    std::optional<std::string> parameter(std::string_view name) const;
};

// Its answer.
struct Reply {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    std::optional<std::string> fileName;  // sent as an attachment of that name

    static Reply json(const nlohmann::json& value, int status = 200);
    // {"error": message}
    static Reply error(int status, std::string_view message);
};

class WindowServer {
public:
    // Runs on the main loop.
    using Dispatch = std::function<Reply(const Call&)>;
    // Runs a task on the main loop; called from the server's thread.
    using Poster = std::function<void(std::function<void()>)>;

    static constexpr std::uint16_t defaultPort = 8474;
    static constexpr std::string_view cookieName = "ombrelo_session";
    static constexpr std::string_view tokenHeader = "x-ombrelo-token";

    WindowServer(Dispatch dispatch, Poster postToMain, http::Limits limits = {});
    ~WindowServer();
    WindowServer(const WindowServer&) = delete;
    WindowServer& operator=(const WindowServer&) = delete;

    // Listens on 127.0.0.1:`port` (0: any free port); returns the port bound.
    // Throws std::system_error when it cannot be bound, after logging it.
    std::uint16_t start(std::uint16_t port);
    void stop();
    bool running() const { return listener_.running(); }
    std::uint16_t port() const { return listener_.port(); }

    // The address that opens the window on `page` ("timeline", …) once, within
    // two minutes. Any thread. REQUIRES: running.
    std::string openingLink(std::string_view page);

    // The gate for everything but static files and /open: the refusal, or
    // nothing when `request` may reach the API.
    std::optional<http::Response> checkCall(const http::Request& request) const;

private:
    struct Main;
    void handle(http::Request request, http::Respond respond);
    http::Response open(const http::Request& request);

    std::shared_ptr<Main> main_;  // shared with tasks on the main loop, which may outlive the server
    WindowSessions sessions_;
    const std::string expiredPage_;
    http::Listener listener_;
};

} // namespace ombrelo::ui
