// `ombrelo browser-host` as a browser runs it: native messages on its standard
// input, each checked and passed to the tracker's control socket (here a
// stand-in that records what arrives). Bad and oversized messages are dropped
// without stopping the host; private pages and addresses that are not http
// never get past it.
#include "control/BrowserMessage.h"
#include "testing/Processes.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace ombrelo {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// Answers every request on `socket` with {"ok":true}, keeping what it received.
class StandInTracker {
public:
    explicit StandInTracker(const fs::path& socket) {
        fs::create_directories(socket.parent_path());
        listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socket.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << socket;
        ::listen(listener_, 8);
        thread_ = std::thread([this] { serve(); });
    }
    ~StandInTracker() {
        stopping_ = true;
        thread_.join();
        ::close(listener_);
    }
    std::vector<json> received() {
        std::lock_guard lock(mutex_);
        return received_;
    }

private:
    void serve() {
        while (!stopping_) {
            pollfd entry{listener_, POLLIN, 0};
            if (::poll(&entry, 1, 20) <= 0) continue;
            int connection = ::accept(listener_, nullptr, nullptr);
            if (connection < 0) continue;
            std::string line;
            char buffer[4096];
            while (line.find('\n') == std::string::npos) {
                ssize_t got = ::recv(connection, buffer, sizeof buffer, 0);
                if (got <= 0) break;
                line.append(buffer, std::size_t(got));
            }
            {
                std::lock_guard lock(mutex_);
                received_.push_back(json::parse(line.substr(0, line.find('\n')), nullptr, false));
            }
            ::send(connection, "{\"ok\":true}\n", 12, MSG_NOSIGNAL);
            ::close(connection);
        }
    }

    int listener_ = -1;
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::vector<json> received_;
    std::thread thread_;
};

std::string nativeMessage(const std::string& body) {
    auto length = static_cast<std::uint32_t>(body.size());
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + body;
}

TEST(BrowserHost, PassesCheckedReportsOnAndDropsWhatIsMalformed) {
    testing::TempDir home;
    std::vector<std::string> database = {"OMBRELO_DB=" + (home / "ombrelo.sqlite").string()};
    testing::CommandResult where = testing::runOmbrelo(home.path(), {"browser-host", "--socket-path"}, database);
    ASSERT_EQ(where.status, 0) << where.err;
    StandInTracker tracker(where.out.substr(0, where.out.find('\n')));

    std::string page = R"({"kind":"page","at":1763880000500,"focused":true,"incognito":false,)";
    std::string input =
        nativeMessage(page + R"("url":"http://alpha.test:8080/a?b=1","title":"Page Alpha"})") +
        nativeMessage("{") +                                                          // not JSON
        nativeMessage(page + R"("url":"http://beta.test/","title":7})") +             // a title of the wrong type
        nativeMessage(R"({"kind":"tab","at":1})") +                                   // an unknown kind
        nativeMessage(std::string(BrowserMessage::maxBytes + 1, ' ')) +               // too long: skipped whole
        nativeMessage(page + R"("url":"file:///home/me/contrat.pdf","title":"contrat.pdf"})") +
        nativeMessage(R"({"kind":"page","at":1763880001000,"focused":true,"incognito":true,)"
                      R"("url":"https://secret.test/","title":"Secret"})") +
        nativeMessage(page + R"("url":"HTTPS://user@Docs.Example.ORG.:8443/x","title":"Docs"})") +
        nativeMessage(R"({"kind":"blur","at":1763880002000})");
    testing::writeFile(home / "input", input);
    testing::CommandResult hosted = testing::runOmbrelo(home.path(), {"browser-host", "chrome-extension://x/"},
                                                        database, home / "input");
    EXPECT_EQ(hosted.status, 0) << hosted.err;
    EXPECT_EQ(hosted.out, "") << "standard output belongs to the browser";
    for (std::string reason : {"pas un objet JSON", "champ invalide : title", "« kind » inconnu", "65537 octets"})
        EXPECT_NE(hosted.err.find(reason), std::string::npos) << reason << "\n" << hosted.err;

    int browser = ::getpid();  // the host's parent, as the browser is
    auto pageRequest = [&](double at, bool incognito, json url, json title, json domain) {
        return json{{"command", "browser-page"}, {"pid", browser}, {"at", at},       {"focused", true},
                    {"incognito", incognito},    {"url", url},     {"title", title}, {"domain", domain}};
    };
    std::vector<json> expected = {
        pageRequest(1763880000.5, false, "http://alpha.test:8080/a?b=1", "Page Alpha", "alpha.test"),
        pageRequest(1763880000.5, false, nullptr, nullptr, nullptr),  // a file's path is nobody's business
        pageRequest(1763880001.0, true, nullptr, nullptr, nullptr),
        pageRequest(1763880000.5, false, "HTTPS://user@Docs.Example.ORG.:8443/x", "Docs", "docs.example.org"),
        {{"command", "browser-blur"}, {"pid", browser}, {"at", 1763880002.0}},
        {{"command", "browser-gone"}, {"pid", browser}},
    };
    EXPECT_EQ(tracker.received(), expected);
}

TEST(BrowserHost, WithoutATrackerReportsAreLostQuietly) {
    testing::TempDir home;
    testing::writeFile(home / "input", nativeMessage(R"({"kind":"blur","at":1763880002000})"));
    testing::CommandResult hosted =
        testing::runOmbrelo(home.path(), {"browser-host"}, {"OMBRELO_DB=" + (home / "db.sqlite").string()},
                            home / "input");
    EXPECT_EQ(hosted.status, 0) << hosted.err;
    EXPECT_FALSE(fs::exists(home / "db.sqlite")) << "the host never opens the database";
}

// Each browser with a profile is told where the host is; uninstalling takes it all back.
TEST(BrowserInstall, DeclaresTheHostToTheBrowsersFoundAndTakesItBack) {
    testing::TempDir home;
    fs::create_directories(home / "config/chromium");
    fs::create_directories(home / ".mozilla");
    testing::CommandResult installed = testing::runOmbrelo(home.path(), {"browser", "install"});
    ASSERT_EQ(installed.status, 0) << installed.err;

    fs::path launcher = home / "data/ombrelo/browser-host";
    json chromium = json::parse(testing::readFile(home / "config/chromium/NativeMessagingHosts/fr.ombrelo.browser.json"));
    json firefox = json::parse(testing::readFile(home / ".mozilla/native-messaging-hosts/fr.ombrelo.browser.json"));
    EXPECT_EQ(chromium["name"], "fr.ombrelo.browser");
    EXPECT_EQ(chromium["type"], "stdio");
    EXPECT_EQ(chromium["path"], launcher.string());
    EXPECT_EQ(chromium["allowed_origins"], json({"chrome-extension://pagijkklcjcgobdabpdfcpanhogpdolp/"}));
    EXPECT_EQ(firefox["allowed_extensions"], json({"browser@ombrelo.fr"}));
    EXPECT_FALSE(fs::exists(home / "config/google-chrome")) << "a browser without a profile is left alone";
    EXPECT_NE(installed.out.find("src/browser/extension"), std::string::npos) << installed.out;

    // The launcher runs this very program as the host.
    EXPECT_TRUE((fs::status(launcher).permissions() & fs::perms::owner_exec) != fs::perms::none);
    EXPECT_NE(testing::readFile(launcher).find(std::string(OMBRELO_BINARY) + "' browser-host"), std::string::npos);
    EXPECT_EQ(testing::runProgram({launcher.string(), "--socket-path"}, {"XDG_RUNTIME_DIR=" + (home / "run").string()}),
              0);

    ASSERT_EQ(testing::runOmbrelo(home.path(), {"browser", "uninstall"}).status, 0);
    EXPECT_FALSE(fs::exists(home / "config/chromium/NativeMessagingHosts/fr.ombrelo.browser.json"));
    EXPECT_FALSE(fs::exists(home / ".mozilla/native-messaging-hosts/fr.ombrelo.browser.json"));
    EXPECT_FALSE(fs::exists(launcher));
}

} // namespace
} // namespace ombrelo
