#include "agent/MCPToken.h"

#include "support/AtomicFile.h"
#include "support/L10n.h"
#include "support/Log.h"
#include "support/Secret.h"

#include <libsecret/secret.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <thread>
#include <mutex>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;

std::string_view describe(TokenStore store) {
    switch (store) {
    case TokenStore::secretService: return "Secret Service";
    case TokenStore::file: return L10n::text("fichier", "file");
    case TokenStore::unsaved: return L10n::text("non enregistré", "not saved");
    }
    return {};
}

namespace MCPToken {

namespace {

std::shared_ptr<spdlog::logger> log() { return Log::get("mcp"); }

// ---- The Secret Service ----

const SecretSchema* schema() {
    static const SecretSchema schema = {"fr.ombrelo.mcp",
                                        SECRET_SCHEMA_NONE,
                                        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}}};
    return &schema;
}

bool fileOnly() {
    const char* store = std::getenv("OMBRELO_TOKEN_STORE");
    return store && std::string_view(store) == "file";
}

// Without a session bus, GLib would try to launch one (dbus-launch), which can
// hang or leave a stray daemon behind: not worth it for a token.
bool sessionBusExists() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return true;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::error_code ignored;
    return runtime && *runtime && fs::exists(fs::path(runtime) / "bus", ignored);
}

struct SecretAnswer {
    bool reached = false;  // the Secret Service answered
    std::optional<std::string> secret;
    std::string error;
};

std::string take(GError* error) {
    std::string message = error ? error->message : "?";
    if (error) g_error_free(error);
    return message;
}

std::atomic<std::chrono::milliseconds::rep> timeoutMilliseconds{3000};

// The conversation itself, on the worker's thread.
SecretAnswer converse(GCancellable* cancellable, const std::function<SecretAnswer(GCancellable*)>& call) {
    static std::mutex mutex;
    static GDBusConnection* bus = nullptr;  // guarded by mutex
    {
        std::lock_guard lock(mutex);
        if (!bus) {
            GError* error = nullptr;
            bus = g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, &error);
            if (!bus) return SecretAnswer{false, std::nullopt, take(error)};
            // GLib's shared session connection ends the process when the bus
            // goes away; the tracker is not to be stopped by its token store. The
            // reference is kept, or the next caller would get a new connection
            // with the default back.
            g_dbus_connection_set_exit_on_close(bus, FALSE);
        }
    }
    return call(cancellable);
}

// Runs `call` on a thread of its own and gives up after the timeout. A locked
// keyring may wait for a password prompt nobody sees, and a bus that does not
// answer holds GLib well past any cancellation, so the thread is left to end on
// its own; until it does, the Secret Service counts as away.
SecretAnswer withDeadline(std::function<SecretAnswer(GCancellable*)> call) {
    struct Exchange {
        std::mutex mutex;
        std::condition_variable done;
        std::optional<SecretAnswer> answer;  // guarded by mutex
    };
    static std::atomic<bool> busy{false};
    if (busy.exchange(true)) return {false, std::nullopt, "une requête précédente est restée sans réponse"};
    auto exchange = std::make_shared<Exchange>();
    GCancellable* cancellable = g_cancellable_new();
    g_object_ref(cancellable);  // one reference for each thread
    std::thread worker([exchange, cancellable, call = std::move(call)] {
        SecretAnswer answer = converse(cancellable, call);
        g_object_unref(cancellable);
        {
            std::lock_guard lock(exchange->mutex);
            busy = false;  // before the caller can see the answer and ask again
            exchange->answer = std::move(answer);
        }
        exchange->done.notify_all();
    });
    worker.detach();
    std::unique_lock lock(exchange->mutex);
    bool answered = exchange->done.wait_for(lock, std::chrono::milliseconds(timeoutMilliseconds.load()),
                                            [&] { return exchange->answer.has_value(); });
    if (!answered) g_cancellable_cancel(cancellable);
    g_object_unref(cancellable);
    if (!answered) return {false, std::nullopt, "délai dépassé"};
    return std::move(*exchange->answer);
}

SecretAnswer lookUp() {
    return withDeadline([](GCancellable* cancellable) {
        GError* error = nullptr;
        gchar* secret = secret_password_lookup_sync(schema(), cancellable, &error, "service", "fr.ombrelo.mcp",
                                                    "account", "token", nullptr);
        if (error) return SecretAnswer{false, std::nullopt, take(error)};
        SecretAnswer answer{true, std::nullopt, {}};
        if (secret) {
            answer.secret = secret;
            secret_password_free(secret);
        }
        return answer;
    });
}

SecretAnswer keep(const std::string& token) {
    std::string label(L10n::text("Ombrelo : jeton d'accès MCP", "Ombrelo: MCP access token"));
    return withDeadline([token, label](GCancellable* cancellable) {
        GError* error = nullptr;
        // An item with the same attributes is replaced.
        if (!secret_password_store_sync(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), token.c_str(), cancellable,
                                        &error, "service", "fr.ombrelo.mcp", "account", "token", nullptr))
            return SecretAnswer{false, std::nullopt, take(error)};
        return SecretAnswer{true, std::nullopt, {}};
    });
}

// ---- The file ----

std::string_view trimmed(std::string_view text) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

std::optional<std::string> readFile() {
    fs::path path = filePath();
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        if (errno != ENOENT) log()->warn("Jeton MCP illisible ({}) : {}", path.string(), std::strerror(errno));
        return std::nullopt;
    }
    struct stat status {};
    std::string text;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != ::geteuid() ||
        (status.st_mode & 077) != 0) {
        // Others may have read it: a new token is safer than one that leaked.
        log()->warn("Jeton MCP ignoré : {} n'est pas privé", path.string());
    } else {
        std::array<char, 4096> buffer;
        ssize_t length;
        while ((length = ::read(fd, buffer.data(), buffer.size())) != 0) {
            if (length < 0 && errno == EINTR) continue;
            if (length < 0) {
                log()->warn("Jeton MCP illisible ({}) : {}", path.string(), std::strerror(errno));
                text.clear();
                break;
            }
            text.append(buffer.data(), std::size_t(length));
        }
    }
    ::close(fd);
    std::string_view token = trimmed(text);
    if (token.empty()) return std::nullopt;
    return std::string(token);
}

void writeFile(const std::string& token) {
    fs::path path = filePath();
    fs::path folder = path.parent_path();
    if (!fs::exists(folder)) {
        fs::create_directories(folder.parent_path());
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
            throw std::system_error(errno, std::generic_category(), folder.string());
    }
    // Created 0600 from its first byte (mkstemp), then renamed into place.
    writeFileAtomically(path, token, 0600);
}

} // namespace

fs::path filePath() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && *data) return fs::path(data) / "ombrelo" / "mcp-token";
    const char* home = std::getenv("HOME");
    return fs::path(home ? home : ".") / ".local" / "share" / "ombrelo" / "mcp-token";
}

std::optional<StoredToken> load() {
    if (auto token = readFile()) return StoredToken{std::move(*token), TokenStore::file};
    if (fileOnly() || !sessionBusExists()) return std::nullopt;
    SecretAnswer answer = lookUp();
    if (!answer.reached) log()->info("Secret Service injoignable : {}", answer.error);
    if (answer.secret && !answer.secret->empty())
        return StoredToken{std::move(*answer.secret), TokenStore::secretService};
    return std::nullopt;
}

StoredToken loadOrCreate() {
    if (auto token = load()) return std::move(*token);
    return regenerate();
}

StoredToken regenerate() {
    std::string token = randomSecret();
    if (!fileOnly() && sessionBusExists()) {
        SecretAnswer answer = keep(token);
        if (answer.reached) {
            // The file would win over the new token at the next load.
            std::error_code error;
            if (!fs::remove(filePath(), error) && error)
                log()->warn("Ancien jeton MCP non supprimé ({}) : {}", filePath().string(), error.message());
            return {std::move(token), TokenStore::secretService};
        }
        log()->info("Secret Service injoignable, jeton MCP dans {} : {}", filePath().string(), answer.error);
    }
    try {
        writeFile(token);
        return {std::move(token), TokenStore::file};
    } catch (const std::exception& failure) {
        log()->warn("Jeton MCP non enregistré : {}", failure.what());
        return {std::move(token), TokenStore::unsaved};
    }
}

void setSecretServiceTimeout(std::chrono::milliseconds timeout) { timeoutMilliseconds = timeout.count(); }

} // namespace MCPToken
} // namespace ombrelo
