// MCPToken: the access token agents present to the agent server, 64 lowercase
// hexadecimal characters (32 random bytes). It is kept in the Secret Service
// (libsecret; attributes service "fr.ombrelo.mcp", account "token"), or, where
// none answers (headless machines, tests), in $XDG_DATA_HOME/ombrelo/mcp-token,
// a file only its owner can read. Never in the settings file, never in a log.
//
// OMBRELO_TOKEN_STORE=file keeps to the file. The Secret Service is asked only
// when a session bus exists, and never for longer than 3 seconds (a locked
// keyring may wait for a password prompt nobody sees, a bus may not answer), so
// a caller on the main loop is never held for long; past that it counts as away.
//
// A token written to the file (the Secret Service being away) wins over one in
// the Secret Service, and one stored in the Secret Service removes the file: the
// last token made is the one read.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

enum class TokenStore {
    secretService,
    file,
    unsaved,  // could be stored nowhere: good for this run only
};

// "Secret Service", "fichier" / "file", "non enregistré" / "not saved".
std::string_view describe(TokenStore store);

struct StoredToken {
    std::string value;
    TokenStore store;
};

namespace MCPToken {

// The stored token, or nothing when none is stored (or it is empty). A token
// file that others could read is not trusted (it reads as none).
std::optional<StoredToken> load();

// The stored token, made and stored by regenerate() when there is none.
StoredToken loadOrCreate();

// Makes a new token and stores it, replacing the old one, which stops working.
// A failure to store is logged, and the token is still returned, `unsaved`.
StoredToken regenerate();

// $XDG_DATA_HOME/ombrelo/mcp-token (~/.local/share when unset).
std::filesystem::path filePath();

// For testing: how long the Secret Service is waited for.
void setSecretServiceTimeout(std::chrono::milliseconds timeout);

} // namespace MCPToken
} // namespace ombrelo
