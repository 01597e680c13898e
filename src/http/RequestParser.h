// RequestParser: turns the bytes of one connection into a Request as they
// arrive, without any I/O, so the connection only has to read again while the
// answer is `incomplete`. The head is searched for once (resuming where the last
// search stopped) and the body is then only counted, so a large body read in
// many pieces costs no more than one read.
//
// Limits: a body of at most maxBody bytes, at most maxBuffered bytes received in
// all (the body plus 16 KiB of head). What is sent beyond the body is ignored.
#pragma once

#include "http/Request.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace ombrelo::http {

class RequestParser {
public:
    enum class Result {
        complete,    // request() holds the request
        incomplete,  // more bytes are needed
        invalid,     // answered with 400: unreadable head, or Content-Length over maxBody
        tooLarge,    // answered with 413: more than maxBuffered bytes received
    };

    static constexpr std::size_t maxBody = 1'000'000;
    static constexpr std::size_t maxBuffered = maxBody + 16'384;

    // Adds the bytes just received and says how far the request has come.
    // REQUIRES: no earlier call returned anything but `incomplete`.
    Result consume(std::string_view bytes);

    // REQUIRES: consume() returned `complete`.
    const Request& request() const { return request_; }
    Request take() { return std::move(request_); }

private:
    bool readHead(std::string_view head);

    std::string buffer_;
    std::size_t searched_ = 0;   // bytes already searched for the blank line
    std::size_t bodyStart_ = 0;  // 0 until the head is read
    std::size_t bodyLength_ = 0;
    Request request_;
};

} // namespace ombrelo::http
