// ombrelo gnome-extension install, uninstall: our GNOME Shell extension, the
// only way to know the window in front in GNOME's Wayland session.
#include "app/Commands.h"
#include "app/GnomeExtensionFiles.h"
#include "app/Output.h"
#include "app/Programs.h"
#include "app/Session.h"
#include "app/UserFolders.h"
#include "support/AtomicFile.h"
#include "support/L10n.h"

#include <fmt/format.h>

#include <memory>

namespace ombrelo::commands {

namespace fs = std::filesystem;

namespace {

// GNOME Shell looks for each user's extensions there.
fs::path extensionFolder() {
    return xdgFolder("XDG_DATA_HOME", ".local/share") / "gnome-shell/extensions" / gnomeExtensionUUID;
}

int shellMajor(int chosen) {
    if (chosen > 0) return chosen;
    if (auto line = programOutput({"gnome-shell", "--version"}))
        if (auto major = gnomeShellMajor(*line)) return *major;
    throw CommandFailure(exitStatus::failure,
                         std::string(L10n::text("GNOME Shell introuvable (gnome-shell --version) : précisez sa "
                                                "version avec --shell-version.",
                                                "GNOME Shell not found (gnome-shell --version): give its version "
                                                "with --shell-version.")));
}

void install(int chosenVersion) {
    int major = shellMajor(chosenVersion);
    std::map<std::string, std::string> files;
    try {
        files = gnomeExtensionFiles(shippedFolder("gnome-extension", OMBRELO_GNOME_EXTENSION_SOURCE, "windows.js"),
                                    major);
    } catch (const std::runtime_error& error) {
        throw CommandFailure(exitStatus::failure, error.what());
    }
    fs::create_directories(extensionFolder());
    for (const auto& [name, text] : files) writeFileAtomically(extensionFolder() / name, text);
    output::line(fmt::format("GNOME Shell {} : {}", major, extensionFolder().string()));
    // Recorded in the settings now, the extension is on from the next login.
    bool enabled = programOutput({"gnome-extensions", "enable", gnomeExtensionUUID}).has_value();
    output::line(fmt::format(
        fmt::runtime(enabled ? L10n::text("Extension activée. GNOME Shell la charge à la prochaine ouverture de "
                                          "session : fermez la session et rouvrez-la. « ombrelo status » montre "
                                          "ensuite « GNOME Shell (extension Ombrelo) ».",
                                          "Extension enabled. GNOME Shell loads it at the next login: log out and "
                                          "back in. \"ombrelo status\" then shows \"GNOME Shell (Ombrelo "
                                          "extension)\".")
                             : L10n::text("Fermez la session et rouvrez-la, puis activez l'extension : "
                                          "« gnome-extensions enable {0} » (ou dans l'application Extensions).",
                                          "Log out and back in, then enable the extension: \"gnome-extensions "
                                          "enable {0}\" (or in the Extensions application).")),
        gnomeExtensionUUID));
}

void uninstall() {
    programOutput({"gnome-extensions", "disable", gnomeExtensionUUID});
    std::error_code error;
    if (fs::remove_all(extensionFolder(), error) > 0)
        output::line(fmt::format("{} : {}", L10n::text("Retirée", "Removed"), extensionFolder().string()));
    else
        output::line(L10n::text("L'extension n'était pas installée.", "The extension was not installed."));
}

} // namespace

void gnomeExtension(CLI::App& program, Session&) {
    CLI::App* command = program.add_subcommand(
        "gnome-extension", std::string(L10n::text("L'extension GNOME Shell : la fenêtre au premier plan sous Wayland",
                                                  "The GNOME Shell extension: the window in front under Wayland")));
    command->require_subcommand(1);
    auto version = std::make_shared<int>(0);
    CLI::App* installCommand = command->add_subcommand(
        "install", std::string(L10n::text("Installe et active l'extension pour cet utilisateur",
                                          "Install and enable the extension for this user")));
    installCommand->add_option("--shell-version", *version,
                               std::string(L10n::text("Version de GNOME Shell (sinon : gnome-shell --version)",
                                                      "GNOME Shell's version (else: gnome-shell --version)")))
        ->check(CLI::Range(40, 99));
    installCommand->callback([version] { install(*version); });
    command->add_subcommand("uninstall", std::string(L10n::text("Désactive et retire l'extension",
                                                                "Disable and remove the extension")))
        ->callback([] { uninstall(); });
}

} // namespace ombrelo::commands
