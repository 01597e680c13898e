// LocalAddress: the checks every loopback server makes of who is asking. A web
// page in the user's browser can reach 127.0.0.1 too, under a name of its own
// (DNS rebinding) or from its own origin; these tell such requests apart.
#pragma once

#include <cstdint>
#include <string_view>

namespace ombrelo::http {

// "127.0.0.1" or "localhost" (any case), before any ":port". IPv6 and empty
// values are refused.
bool isLocalHost(std::string_view host);
// A URL whose host is "127.0.0.1" or "localhost" (any scheme, any port).
// "null" and anything that is not a URL with a host are refused.
bool isLocalOrigin(std::string_view origin);
// A Host header naming this server exactly: "127.0.0.1:<port>" or
// "localhost:<port>" (the name in any case).
bool isHostOf(std::string_view host, std::uint16_t port);
// An Origin naming this server exactly: "http://127.0.0.1:<port>" or
// "http://localhost:<port>".
bool isOriginOf(std::string_view origin, std::uint16_t port);
// Equal bytes, in a time that does not depend on where they differ (only on
// the length, which is no secret).
bool constantTimeEqual(std::string_view a, std::string_view b);

} // namespace ombrelo::http
