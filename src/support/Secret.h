// Secret: unguessable texts for tokens, tickets and session keys.
#pragma once

#include <string>

namespace ombrelo {

// 32 bytes from getrandom(2) as 64 lowercase hexadecimal characters. Throws
// std::system_error when the kernel gives no random bytes.
std::string randomSecret();

} // namespace ombrelo
