#include "support/Secret.h"

#include <array>
#include <cerrno>
#include <sys/random.h>
#include <system_error>

namespace ombrelo {

std::string randomSecret() {
    std::array<unsigned char, 32> bytes{};
    for (std::size_t filled = 0; filled < bytes.size();) {
        ssize_t got = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw std::system_error(errno, std::generic_category(), "getrandom");
        filled += std::size_t(got);
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string secret;
    secret.reserve(2 * bytes.size());
    for (unsigned char byte : bytes) {
        secret += digits[byte >> 4];
        secret += digits[byte & 0xF];
    }
    return secret;
}

} // namespace ombrelo
