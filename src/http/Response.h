// Response: what a loopback server sends back, and its exact bytes on the wire.
// Every connection carries one request and one response, so the head always says
// "Connection: close"; the content type is sent also when the body is empty.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrelo::http {

struct Response {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    // Sent after the fixed headers, in this order.
    std::vector<std::pair<std::string, std::string>> headers;

    // A response with no body.
    static Response empty(int status) { return Response{status, {}, "application/json", {}}; }

    // "HTTP/1.1 <status> <reason>", Content-Type, Content-Length, Connection,
    // then `headers`, a blank line and the body.
    std::string serialize() const;

    // The reason phrase of `status`; "Error" for the statuses the servers never send.
    static std::string_view reason(int status);
};

} // namespace ombrelo::http
