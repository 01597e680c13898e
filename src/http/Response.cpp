#include "http/Response.h"

#include <fmt/format.h>

namespace ombrelo::http {

std::string_view Response::reason(int status) {
    switch (status) {
    case 200: return "OK";
    case 202: return "Accepted";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 413: return "Payload Too Large";
    default: return "Error";
    }
}

std::string Response::serialize() const {
    std::string out = fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n",
                                  status, reason(status), contentType, body.size());
    for (const auto& [name, value] : headers) out += fmt::format("{}: {}\r\n", name, value);
    out += "\r\n";
    out += body;
    return out;
}

} // namespace ombrelo::http
