// ombrelo browser-host, browser install, browser uninstall: the way browsers
// tell the tracker which site is in front. The browser starts
// `ombrelo browser-host` for our extension and writes it native messages (a
// 4-byte length in the machine's order, then that much JSON) on standard
// input; the host checks each one (BrowserMessage.h) and passes it to the
// running tracker through its control socket. Standard output belongs to the
// browser: the host never writes there. A bad or oversized message is dropped
// with a line in the log, and the host reads on.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/UserFolders.h"
#include "control/BrowserMessage.h"
#include "control/ControlSocket.h"
#include "support/AtomicFile.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unistd.h>

namespace ombrelo::commands {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view hostName = "fr.ombrelo.browser";
// The extension's id in Chromium-based browsers, fixed by the key in its
// manifest (the window's script tests check that they agree).
constexpr std::string_view chromiumExtensionID = "pagijkklcjcgobdabpdfcpanhogpdolp";
constexpr std::string_view firefoxExtensionID = "browser@ombrelo.fr";

// --- the host ---

// Reads exactly `size` bytes; false at the end of input (or a read error).
bool readExactly(char* out, std::size_t size) {
    while (size > 0) {
        ssize_t got = ::read(STDIN_FILENO, out, size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        out += got;
        size -= std::size_t(got);
    }
    return true;
}

bool skip(std::size_t size) {
    std::array<char, 16 * 1024> chunk;
    while (size > 0) {
        std::size_t part = std::min(size, chunk.size());
        if (!readExactly(chunk.data(), part)) return false;
        size -= part;
    }
    return true;
}

void tellTracker(const fs::path& socket, const nlohmann::json& request) {
    try {
        // No tracker: the page is simply not recorded, as when it is stopped.
        ControlClient::send(socket, request);
    } catch (const std::exception& error) {
        Log::get("browser")->warn("Navigateur : le suivi n'a pas répondu ({})", error.what());
    }
}

void host(Session& session) {
    auto log = Log::get("browser");
    fs::path socket = controlSocketFor(session.databasePath());
    int browser = static_cast<int>(::getppid());
    for (;;) {
        std::uint32_t length = 0;
        if (!readExactly(reinterpret_cast<char*>(&length), sizeof length)) break;
        if (length > BrowserMessage::maxBytes) {
            log->warn("Navigateur : message de {} octets ignoré (au plus {})", length, BrowserMessage::maxBytes);
            if (!skip(length)) break;
            continue;
        }
        std::string message(length, '\0');
        if (!readExactly(message.data(), length)) break;
        auto request = BrowserMessage::toRequest(message, browser);
        if (auto* reason = std::get_if<std::string>(&request)) {
            log->warn("Navigateur : message ignoré ({})", *reason);
            continue;
        }
        tellTracker(socket, std::get<nlohmann::json>(request));
    }
    // The browser closed, or stopped the extension: its last page is in front of nothing.
    tellTracker(socket, {{"command", "browser-gone"}, {"pid", browser}});
}

// --- install ---

struct BrowserFamily {
    std::string_view name;
    fs::path profiles;  // where the browser keeps its settings: it is installed when this exists
    fs::path hosts;     // where it looks for native messaging hosts
    bool firefox;
};

std::vector<BrowserFamily> browsers() {
    fs::path config = xdgFolder("XDG_CONFIG_HOME", ".config");
    auto chromium = [&](std::string_view name, const fs::path& folder) {
        return BrowserFamily{name, config / folder, config / folder / "NativeMessagingHosts", false};
    };
    return {chromium("Chromium", "chromium"),
            chromium("Google Chrome", "google-chrome"),
            chromium("Brave", "BraveSoftware/Brave-Browser"),
            chromium("Microsoft Edge", "microsoft-edge"),
            chromium("Vivaldi", "vivaldi"),
            {"Firefox", homeFolder() / ".mozilla", homeFolder() / ".mozilla/native-messaging-hosts", true}};
}

// A manifest cannot pass arguments: it names this small program, which runs
// the host with the ombrelo that installed it.
fs::path hostLauncher() { return xdgFolder("XDG_DATA_HOME", ".local/share") / "ombrelo" / "browser-host"; }

fs::path manifestOf(const BrowserFamily& browser) { return browser.hosts / (std::string(hostName) + ".json"); }

std::string manifest(const BrowserFamily& browser) {
    nlohmann::json document = {{"name", hostName},
                               {"description", "Ombrelo: the site in front, for the local time tracker"},
                               {"path", hostLauncher().string()},
                               {"type", "stdio"}};
    if (browser.firefox)
        document["allowed_extensions"] = {firefoxExtensionID};
    else
        document["allowed_origins"] = {fmt::format("chrome-extension://{}/", chromiumExtensionID)};
    return document.dump(2) + "\n";
}

fs::path extensionFolder() { return shippedFolder("browser-extension", OMBRELO_EXTENSION_SOURCE, "manifest.json"); }

void writeLauncher() {
    std::error_code error;
    fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) throw CommandFailure(exitStatus::failure, error.message());
    fs::create_directories(hostLauncher().parent_path());
    std::string quoted;
    for (char c : program.string()) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    writeFileAtomically(hostLauncher(), "#!/bin/sh\nexec '" + quoted + "' browser-host \"$@\"\n");
    fs::permissions(hostLauncher(), fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                        fs::perms::others_read | fs::perms::others_exec);
}

void install(bool everywhere) {
    writeLauncher();
    std::vector<std::string> done;
    for (const BrowserFamily& browser : browsers()) {
        if (!everywhere && !fs::exists(browser.profiles)) continue;
        fs::create_directories(browser.hosts);
        writeFileAtomically(manifestOf(browser), manifest(browser));
        output::line(fmt::format("{} : {}", browser.name, manifestOf(browser).string()));
        done.push_back(std::string(browser.name));
    }
    if (done.empty())
        output::line(L10n::text("Aucun navigateur trouvé (aucun profil) : lancez-le une fois, ou --all.",
                                "No browser found (no profile): start it once, or use --all."));
    fs::path extension = extensionFolder();
    output::line("");
    output::line(fmt::format(
        fmt::runtime(L10n::text(
            "Chargez ensuite l'extension :\n"
            "  Chromium, Chrome, Brave, Edge, Vivaldi : chrome://extensions, « Mode développeur », "
            "« Charger l'extension non empaquetée », dossier {0}\n"
            "  Firefox : about:debugging#/runtime/this-firefox, « Charger un module complémentaire temporaire », "
            "fichier {0}/manifest.json\n"
            "Pour les fenêtres privées, autorisez l'extension en navigation privée : leur temps est alors noté "
            "comme privé, sans titre ni adresse.",
            "Then load the extension:\n"
            "  Chromium, Chrome, Brave, Edge, Vivaldi: chrome://extensions, \"Developer mode\", \"Load unpacked\", "
            "folder {0}\n"
            "  Firefox: about:debugging#/runtime/this-firefox, \"Load Temporary Add-on\", file {0}/manifest.json\n"
            "For private windows, allow the extension in private browsing: their time is then recorded as "
            "private, without title or address.")),
        extension.string()));
}

void uninstall() {
    std::error_code error;
    for (const BrowserFamily& browser : browsers())
        if (fs::remove(manifestOf(browser), error))
            output::line(fmt::format("{} : {}", L10n::text("Retiré", "Removed"), manifestOf(browser).string()));
    fs::remove(hostLauncher(), error);
    output::line(L10n::text("Retirez aussi l'extension de vos navigateurs.", "Remove the extension from your browsers too."));
}

} // namespace

void browser(CLI::App& program, Session& session) {
    auto socketPath = std::make_shared<bool>(false);
    CLI::App* hostCommand = program.add_subcommand(
        "browser-host", std::string(L10n::text("Hôte de messagerie native de l'extension (lancé par le navigateur)",
                                               "The extension's native messaging host (started by the browser)")));
    // Browsers pass their own arguments (the extension's origin, a window).
    hostCommand->allow_extras();
    hostCommand->add_flag("--socket-path", *socketPath,
                          std::string(L10n::text("Écrire le chemin du socket du suivi", "Print the tracker's socket path")));
    hostCommand->callback([&session, socketPath] {
        if (*socketPath) return output::line(controlSocketFor(session.databasePath()).string());
        host(session);
    });

    auto everywhere = std::make_shared<bool>(false);
    CLI::App* command = program.add_subcommand(
        "browser", std::string(L10n::text("L'extension de navigateur : les sites vus par le suivi",
                                          "The browser extension: sites seen by the tracker")));
    command->require_subcommand(1);
    CLI::App* installCommand = command->add_subcommand(
        "install", std::string(L10n::text("Déclare l'hôte aux navigateurs installés",
                                          "Declare the host to the installed browsers")));
    installCommand->add_flag("--all", *everywhere,
                             std::string(L10n::text("Aussi pour les navigateurs sans profil",
                                                    "Also for browsers without a profile")));
    installCommand->callback([everywhere] { install(*everywhere); });
    command->add_subcommand("uninstall", std::string(L10n::text("Retire l'hôte des navigateurs",
                                                                "Remove the host from the browsers")))
        ->callback([] { uninstall(); });
}

} // namespace ombrelo::commands
