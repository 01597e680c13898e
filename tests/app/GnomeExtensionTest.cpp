// The GNOME Shell extension as installed for each GNOME Shell: the legacy
// script up to 44, the module from 45, both holding the same body; and the
// command that installs it. The extension itself runs in a real GNOME Shell in
// the platform tests; GNOME 45 and later cannot run here, so their module is
// at least parsed as JavaScript.
#include "app/GnomeExtensionFiles.h"
#include "testing/Processes.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

namespace fs = std::filesystem;
const fs::path sources = fs::path(OMBRELO_SOURCE_DIR) / "src/gnome/extension";

TEST(GnomeExtensionTest, EachShellGetsItsFormWithTheSameBody) {
    auto legacy = gnomeExtensionFiles(sources, 43);
    auto module = gnomeExtensionFiles(sources, 46);
    for (const auto& files : {legacy, module}) {
        EXPECT_NE(files.at("extension.js").find("class FrontWindowService"), std::string::npos);
        EXPECT_EQ(files.at("extension.js").find("@WINDOWS@"), std::string::npos);
        EXPECT_EQ(files.at("metadata.json").find("@VERSIONS@"), std::string::npos);
    }
    EXPECT_NE(legacy.at("extension.js").find("function enable()"), std::string::npos);
    EXPECT_NE(legacy.at("metadata.json").find(R"(["42", "43", "44"])"), std::string::npos);
    EXPECT_NE(module.at("extension.js").find("export default class"), std::string::npos);
    EXPECT_NE(module.at("metadata.json").find(R"("45")"), std::string::npos);
    EXPECT_EQ(module.at("metadata.json").find(R"("44")"), std::string::npos);

    EXPECT_THROW(gnomeExtensionFiles("/nonexistent", 43), std::runtime_error);
}

TEST(GnomeExtensionTest, BothFormsAreValidJavaScript) {
    testing::TempDir dir;
    testing::writeFile(dir / "legacy.js", gnomeExtensionFiles(sources, 44).at("extension.js"));
    testing::writeFile(dir / "module.mjs", gnomeExtensionFiles(sources, 45).at("extension.js"));
    for (const char* file : {"legacy.js", "module.mjs"})
        EXPECT_EQ(testing::runProgram({"node", "--check", (dir / file).string()}), 0) << file;
}

TEST(GnomeExtensionTest, TheShellsVersionLineGivesItsMajorVersion) {
    EXPECT_EQ(gnomeShellMajor("GNOME Shell 43.9\n"), 43);
    EXPECT_EQ(gnomeShellMajor("GNOME Shell 46.alpha"), 46);
    EXPECT_EQ(gnomeShellMajor("gnome-shell: command not found"), std::nullopt);
}

TEST(GnomeExtensionTest, InstallWritesTheExtensionWhereTheShellLooksAndUninstallRemovesIt) {
    testing::TempDir home;
    std::vector<std::string> env{"XDG_DATA_HOME=" + (home / "share").string(), "PATH=/nonexistent"};
    // Without gnome-shell on the PATH, its version must be given.
    testing::CommandResult unknown = testing::runOmbrelo(home.path(), {"gnome-extension", "install"}, env);
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("--shell-version"), std::string::npos) << unknown.err;

    testing::CommandResult installed =
        testing::runOmbrelo(home.path(), {"gnome-extension", "install", "--shell-version", "47"}, env);
    ASSERT_EQ(installed.status, 0) << installed.err;
    fs::path folder = home / "share/gnome-shell/extensions/ombrelo@ombrelo.fr";
    EXPECT_EQ(testing::readFile(folder / "extension.js"), gnomeExtensionFiles(sources, 47).at("extension.js"));
    EXPECT_NE(testing::readFile(folder / "metadata.json").find(R"("uuid": "ombrelo@ombrelo.fr")"), std::string::npos);
    EXPECT_NE(installed.out.find("gnome-extensions enable ombrelo@ombrelo.fr"), std::string::npos) << installed.out;

    EXPECT_EQ(testing::runOmbrelo(home.path(), {"gnome-extension", "uninstall"}, env).status, 0);
    EXPECT_FALSE(fs::exists(folder));
}

} // namespace
} // namespace ombrelo
