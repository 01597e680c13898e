#include "http/RequestParser.h"

#include <charconv>
#include <cstdint>
#include <optional>

namespace ombrelo::http {

namespace {

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool validUTF8(std::string_view text) {
    auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (std::size_t i = 0; i < text.size();) {
        unsigned char lead = byte(i);
        std::size_t length;
        unsigned char low = 0x80, high = 0xBF;  // allowed range of the first continuation byte
        if (lead < 0x80) {
            ++i;
            continue;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            return false;
        }
        if (i + length > text.size()) return false;
        if (byte(i + 1) < low || byte(i + 1) > high) return false;
        for (std::size_t k = 2; k < length; ++k)
            if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return false;
        i += length;
    }
    return true;
}

std::string_view trim(std::string_view text) {
    auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string lower(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return out;
}

// A whole decimal integer with an optional sign; anything else (empty, other
// characters, out of range) reads as 0, as the agents' clients expect.
std::int64_t contentLength(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return 0;
    }
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return 0;
    return value;
}

} // namespace

RequestParser::Result RequestParser::consume(std::string_view bytes) {
    buffer_.append(bytes);
    // Checked before anything else, so a request followed by enough extra bytes
    // in the same read is refused as too large like any other.
    if (buffer_.size() > maxBuffered) return Result::tooLarge;
    if (bodyStart_ == 0) {
        // The blank line may straddle two reads: look again at the last 3 bytes.
        std::size_t from = searched_ >= 3 ? searched_ - 3 : 0;
        std::size_t end = buffer_.find("\r\n\r\n", from);
        if (end == std::string::npos) {
            searched_ = buffer_.size();
            return Result::incomplete;
        }
        if (!readHead(std::string_view(buffer_).substr(0, end))) return Result::invalid;
        bodyStart_ = end + 4;
    }
    if (buffer_.size() - bodyStart_ < bodyLength_) return Result::incomplete;
    request_.body = buffer_.substr(bodyStart_, bodyLength_);
    return Result::complete;
}

bool RequestParser::readHead(std::string_view head) {
    if (!validUTF8(head)) return false;
    bool first = true;
    for (std::size_t start = 0; start <= head.size();) {
        std::size_t end = head.find("\r\n", start);
        if (end == std::string_view::npos) end = head.size();
        std::string_view line = head.substr(start, end - start);
        start = end + 2;
        if (first) {
            first = false;
            // Pieces split on single spaces, empty ones dropped: method, target, and
            // the version, which is not checked.
            std::string_view pieces[2];
            int found = 0;
            for (std::size_t at = 0; at < line.size() && found < 2;) {
                std::size_t space = line.find(' ', at);
                if (space == std::string_view::npos) space = line.size();
                if (space > at) pieces[found++] = line.substr(at, space - at);
                at = space + 1;
            }
            if (found < 2) return false;
            request_.method = pieces[0];
            request_.path = pieces[1];
            continue;
        }
        std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        std::string name = lower(trim(line.substr(0, colon)));
        request_.headers.insert_or_assign(std::move(name), std::string(trim(line.substr(colon + 1))));
    }
    std::int64_t length = 0;
    if (const std::string* value = request_.header("content-length")) length = contentLength(*value);
    // Compared as unsigned, so a negative length is refused with the huge ones.
    if (static_cast<std::uint64_t>(length) > maxBody) return false;
    bodyLength_ = static_cast<std::size_t>(length);
    return true;
}

} // namespace ombrelo::http
