#include "http/LocalAddress.h"

#include <cstring>
#include <string>

namespace ombrelo::http {

namespace {

std::string lower(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return out;
}

bool localName(std::string_view host) {
    std::string name = lower(host);
    return name == "127.0.0.1" || name == "localhost";
}

} // namespace

bool isLocalHost(std::string_view host) {
    // The name before any ":port"; empty pieces are skipped, so "[::1]" leaves "[".
    std::size_t start = host.find_first_not_of(':');
    if (start == std::string_view::npos) return false;
    std::size_t end = host.find(':', start);
    return localName(host.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
}

bool isLocalOrigin(std::string_view origin) {
    for (char c : origin) {
        auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7F || std::strchr("\"<>\\^`{|}", c)) return false;  // not a URL
    }
    std::size_t colon = origin.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    auto alpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    if (!alpha(origin[0])) return false;
    for (char c : origin.substr(1, colon - 1))
        if (!alpha(c) && !digit(c) && c != '+' && c != '-' && c != '.') return false;
    std::string_view rest = origin.substr(colon + 1);
    if (!rest.starts_with("//")) return false;  // no host at all ("null" ends before this)
    rest.remove_prefix(2);
    std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (std::size_t at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
    if (authority.starts_with('[')) return false;  // an IPv6 literal is never one of the two names
    std::size_t portColon = authority.find(':');
    if (portColon != std::string_view::npos) {
        for (char c : authority.substr(portColon + 1))
            if (!digit(c)) return false;
        authority = authority.substr(0, portColon);
    }
    return localName(authority);
}

bool isHostOf(std::string_view host, std::uint16_t port) {
    std::size_t colon = host.rfind(':');
    if (colon == std::string_view::npos || host.substr(colon + 1) != std::to_string(port)) return false;
    return localName(host.substr(0, colon));
}

bool isOriginOf(std::string_view origin, std::uint16_t port) {
    constexpr std::string_view scheme = "http://";
    return origin.starts_with(scheme) && isHostOf(origin.substr(scheme.size()), port);
}

bool constantTimeEqual(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    return difference == 0;
}

} // namespace ombrelo::http
