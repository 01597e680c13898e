// Request: one HTTP request as the loopback servers receive it, with the head's
// fields already normalised by RequestParser so that checks compare plain text.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace ombrelo::http {

struct Request {
    std::string method;  // exactly as sent: case is kept
    std::string path;    // the request target exactly as sent, query included
    // Names trimmed of spaces and tabs and lower-cased; values trimmed the same
    // way. A later header of the same name replaces an earlier one.
    std::map<std::string, std::string, std::less<>> headers;
    std::string body;  // exactly Content-Length bytes

    // The value of header `name` (lower case), or null when it was not sent.
    const std::string* header(std::string_view name) const {
        auto found = headers.find(name);
        return found == headers.end() ? nullptr : &found->second;
    }
};

} // namespace ombrelo::http
