#include "support/Uuid.h"

#include <fmt/format.h>
#include <random>

namespace ombrelo {

std::string randomUUID() {
    thread_local std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t high = generator(), low = generator();
    high = (high & 0xffffffffffff0fffULL) | 0x0000000000004000ULL;  // version 4
    low = (low & 0x3fffffffffffffffULL) | 0x8000000000000000ULL;    // RFC 4122 variant
    return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:012x}", high >> 32, (high >> 16) & 0xffff, high & 0xffff,
                       low >> 48, low & 0xffffffffffffULL);
}

} // namespace ombrelo
