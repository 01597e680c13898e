// Handler: what a loopback server does with each request, kept apart from the
// sockets so it can be tested alone. The handler is called on the listener's
// thread with the parsed request and a `respond` callback; it may answer at once
// or later from any thread (the tracker's main loop, typically). `respond` takes
// effect once: later calls are ignored. Dropping every copy of it unanswered
// closes the connection without a response.
#pragma once

#include "http/Request.h"
#include "http/Response.h"

#include <chrono>
#include <cstddef>
#include <functional>

namespace ombrelo::http {

using Respond = std::function<void(Response)>;
using Handler = std::function<void(Request, Respond)>;

// The servers live inside the tracker, and no local program may take capture
// down with them: a client gets `timeout` to send its whole request (not each
// piece, so trickling bytes does not help) and again to take the answer, and
// connections over `maxConnections` are closed at once. Together they bound
// descriptors and memory whatever a client does.
struct Limits {
    std::chrono::milliseconds timeout{std::chrono::seconds(5)};
    std::size_t maxConnections = 16;
};

} // namespace ombrelo::http
