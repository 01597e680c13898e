// The access token: random, kept where only its owner can read it, the same
// from one run to the next until regenerated, and never written to the log.
#include "agent/MCPToken.h"
#include "support/Secret.h"
#include "testing/LoopbackClient.h"
#include "testing/TestSupport.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <csignal>
#include <set>
#include <sys/stat.h>

namespace ombrelo {
namespace {

namespace fs = std::filesystem;
using testing::ScopedEnvironment;

mode_t modeOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777;
}

TEST(MCPToken, IsSixtyFourHexadecimalDigitsAndNeverTheSameTwice) {
    std::set<std::string> tokens;
    for (int i = 0; i < 20; ++i) {
        std::string token = randomSecret();
        EXPECT_EQ(token.size(), 64u);
        EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos) << token;
        tokens.insert(token);
    }
    EXPECT_EQ(tokens.size(), 20u);
}

TEST(MCPToken, KeptInAPrivateFileUntilRegenerated) {
    testing::TempDir home;
    ScopedEnvironment data("XDG_DATA_HOME", (home / "data").string());
    ScopedEnvironment store("OMBRELO_TOKEN_STORE", "file");
    testing::LogSpy spy("mcp");
    const fs::path file = home / "data" / "ombrelo" / "mcp-token";
    ASSERT_EQ(MCPToken::filePath(), file);

    EXPECT_FALSE(MCPToken::load().has_value());
    StoredToken made = MCPToken::loadOrCreate();
    EXPECT_EQ(made.store, TokenStore::file);
    EXPECT_EQ(made.value.size(), 64u);
    EXPECT_EQ(modeOf(file), 0600u);
    EXPECT_EQ(modeOf(file.parent_path()), 0700u);
    EXPECT_EQ(testing::readFile(file), made.value);

    // The next run reads the same one.
    ASSERT_TRUE(MCPToken::load().has_value());
    EXPECT_EQ(MCPToken::load()->value, made.value);
    EXPECT_EQ(MCPToken::loadOrCreate().value, made.value);

    StoredToken fresh = MCPToken::regenerate();
    EXPECT_NE(fresh.value, made.value);
    EXPECT_EQ(MCPToken::load()->value, fresh.value);
    EXPECT_EQ(modeOf(file), 0600u);

    // A file others could read, or an empty one, is not trusted: a new private
    // token replaces it.
    ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
    EXPECT_FALSE(MCPToken::load().has_value());
    StoredToken replaced = MCPToken::loadOrCreate();
    EXPECT_NE(replaced.value, fresh.value);
    EXPECT_EQ(modeOf(file), 0600u);
    testing::writeFile(file, "\n");
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    EXPECT_FALSE(MCPToken::load().has_value());
    // A token written by hand, with its line end, is read back without it.
    testing::writeFile(file, made.value + "\n");
    EXPECT_EQ(MCPToken::load()->value, made.value);

    // Nowhere to write: still a token for this run.
    testing::writeFile(home / "blocked", "");
    ScopedEnvironment blocked("XDG_DATA_HOME", (home / "blocked").string());
    StoredToken unsaved = MCPToken::regenerate();
    EXPECT_EQ(unsaved.store, TokenStore::unsaved);
    EXPECT_EQ(unsaved.value.size(), 64u);

    std::string log = spy.text();
    for (const std::string& token : {made.value, fresh.value, replaced.value, unsaved.value})
        EXPECT_EQ(log.find(token.substr(0, 12)), std::string::npos) << log;
}

// A session bus of its own, with no service to activate: no Secret Service
// unless the test plays one. The daemon is ended, by its pid, with the test.
class PrivateBus {
public:
    explicit PrivateBus(const fs::path& folder) {
        fs::path config = folder / "bus.conf";
        testing::writeFile(config, "<busconfig><type>session</type><listen>unix:dir=" + folder.string() +
                                       "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                       "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                                       "<allow own=\"*\"/></policy></busconfig>");
        std::string command =
            "dbus-daemon --config-file=" + config.string() + " --fork --print-address=1 --print-pid=1";
        FILE* out = ::popen(command.c_str(), "r");
        if (!out) return;
        char line[512];
        if (std::fgets(line, sizeof line, out)) address_ = line;
        if (std::fgets(line, sizeof line, out)) pid_ = std::atoi(line);
        ::pclose(out);
        while (!address_.empty() && address_.back() == '\n') address_.pop_back();
    }
    ~PrivateBus() {
        if (pid_ > 0) ::kill(pid_, SIGTERM);
    }
    const std::string& address() const { return address_; }
    bool running() const { return pid_ > 0 && !address_.empty(); }

private:
    std::string address_;
    pid_t pid_ = 0;
};

// Takes the Secret Service's name on `bus` and never answers a call, as a
// keyring waiting for a password prompt would not.
class SilentSecretService {
public:
    explicit SilentSecretService(const std::string& bus) {
        GError* error = nullptr;
        connection_ = g_dbus_connection_new_for_address_sync(
            bus.c_str(),
            GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                 G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        if (!connection_) {
            ADD_FAILURE() << error->message;
            g_error_free(error);
            return;
        }
        g_dbus_connection_add_filter(connection_, &drop, nullptr, nullptr);
        GVariant* reply = g_dbus_connection_call_sync(
            connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", "org.freedesktop.secrets", 0u), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1,
            nullptr, &error);
        if (!reply) {
            ADD_FAILURE() << error->message;
            g_error_free(error);
            return;
        }
        g_variant_unref(reply);
    }
    // Leaving the bus makes it fail the calls still waiting.
    ~SilentSecretService() {
        if (!connection_) return;
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_object_unref(connection_);
    }

private:
    static GDBusMessage* drop(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer) {
        if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) return message;
        g_object_unref(message);
        return nullptr;
    }
    GDBusConnection* connection_ = nullptr;
};

class ScopedSecretServiceTimeout {
public:
    explicit ScopedSecretServiceTimeout(std::chrono::milliseconds timeout) {
        MCPToken::setSecretServiceTimeout(timeout);
    }
    ~ScopedSecretServiceTimeout() { MCPToken::setSecretServiceTimeout(std::chrono::seconds(3)); }
};

TEST(MCPToken, FallsBackToTheFileWhereNoSecretServiceAnswers) {
    testing::TempDir home;
    ScopedEnvironment data("XDG_DATA_HOME", (home / "data").string());
    ScopedEnvironment store("OMBRELO_TOKEN_STORE", std::nullopt);
    // No session bus at all.
    ScopedEnvironment address("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    ScopedEnvironment runtime("XDG_RUNTIME_DIR", home.path().string());
    StoredToken headless = MCPToken::loadOrCreate();
    EXPECT_EQ(headless.store, TokenStore::file);
    EXPECT_EQ(MCPToken::load()->value, headless.value);

    if (::system("command -v dbus-daemon >/dev/null 2>&1") != 0) GTEST_SKIP() << "no dbus-daemon";
    PrivateBus bus(home.path());
    ASSERT_TRUE(bus.running());
    ScopedEnvironment onBus("DBUS_SESSION_BUS_ADDRESS", bus.address());
    fs::remove(MCPToken::filePath());
    {
        // A bus on which no Secret Service runs: it says so at once, well before
        // the deadline.
        ScopedSecretServiceTimeout patient(std::chrono::seconds(20));
        auto started = std::chrono::steady_clock::now();
        EXPECT_FALSE(MCPToken::load().has_value());
        StoredToken stored = MCPToken::regenerate();
        EXPECT_EQ(stored.store, TokenStore::file);
        EXPECT_EQ(MCPToken::load()->value, stored.value);
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
    }
    {
        // One that never answers: given up on at the deadline.
        SilentSecretService silent(bus.address());
        ScopedSecretServiceTimeout impatient(std::chrono::milliseconds(200));
        fs::remove(MCPToken::filePath());
        auto started = std::chrono::steady_clock::now();
        EXPECT_FALSE(MCPToken::load().has_value());
        StoredToken stored = MCPToken::regenerate();
        EXPECT_EQ(stored.store, TokenStore::file);
        EXPECT_EQ(MCPToken::load()->value, stored.value);
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    }
}

} // namespace
} // namespace ombrelo
