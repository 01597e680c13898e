// Naming applications from .desktop files, documents from titles, and what a
// terminal works on from the process tree. No display needed.
#include "platform/linux/DesktopEntries.h"
#include "platform/linux/DocumentPaths.h"
#include "platform/linux/Processes.h"
#include "platform/DesktopFixture.h"
#include "testing/TestSupport.h"

#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace ombrelo::platform {
namespace {

using ombrelo::testing::TempDir;
using ombrelo::testing::writeFile;
namespace fs = std::filesystem;

std::string entry(const std::string& body) { return "[Desktop Entry]\nType=Application\n" + body; }

class DesktopEntriesTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(system / "org.example.Editor.desktop",
                  entry("Name=Editor\nName[fr]=Éditeur\nName[de_DE]=Bearbeiter\nExec=/opt/example/bin/example-edit "
                        "%F\nStartupWMClass=ExampleEdit\n\n[Desktop Action new]\nName=New Window\nExec=x\n"));
        writeFile(system / "kde/term.desktop",
                  entry("Name=Term\nExec=\"/usr/bin/my term\" --login\nCategories=System;TerminalEmulator;\n"));
        writeFile(system / "viewer.desktop", entry("Name=Viewer (system)\nExec=viewer\n"));
        writeFile(user / "viewer.desktop", entry("Name=Viewer (user)\nExec=viewer\n"));
        writeFile(system / "gone.desktop", entry("Name=Gone\nExec=gone\n"));
        writeFile(user / "gone.desktop", entry("Name=Gone\nHidden=true\n"));
        writeFile(system / "vim.desktop", entry("Name=Vim\nExec=vim %F\nTerminal=true\n"));
        writeFile(system / "tool.desktop", entry("Name=Tool\nExec=env GDK_BACKEND=x11 tool-bin %U\n"));
        writeFile(system / "tool-handler.desktop", entry("Name=Tool URLs\nExec=tool-bin --url %u\nNoDisplay=true\n"));
        writeFile(system / "twin-a.desktop", entry("Name=Twin A\nExec=twin\n"));
        writeFile(system / "twin-b.desktop", entry("Name=Twin B\nExec=twin --b\n"));
        writeFile(system / "flat-a.desktop", entry("Name=Flat A\nExec=/usr/bin/flatpak run org.flat.A\n"));
        writeFile(system / "link.desktop", "[Desktop Entry]\nType=Link\nName=Web\nURL=https://example.org\n");
    }

    TempDir dir;
    fs::path user = dir / "user/applications";
    fs::path system = dir / "system/applications";
};

TEST_F(DesktopEntriesTest, IdsAndNamesFollowTheDesktopEntryRules) {
    DesktopEntries entries({user, system}, "fr_FR.UTF-8");
    const DesktopEntry* editor = entries.byID("org.example.Editor.desktop");
    ASSERT_NE(editor, nullptr);
    EXPECT_EQ(editor->id, "org.example.editor");
    EXPECT_EQ(editor->name, "Éditeur");  // Name[fr] for fr_FR; the action's Name is not the application's
    EXPECT_EQ(DesktopEntries({user, system}, "de_DE.UTF-8@euro").byID("org.example.editor")->name, "Bearbeiter");
    EXPECT_EQ(DesktopEntries({user, system}, "en_US.UTF-8").byID("org.example.editor")->name, "Editor");

    const DesktopEntry* term = entries.byID("kde-term");  // sub-folders join the id with "-"
    ASSERT_NE(term, nullptr);
    EXPECT_TRUE(term->terminalEmulator);

    EXPECT_EQ(entries.byID("viewer")->name, "Viewer (user)");  // the user's folder comes first
    EXPECT_EQ(entries.byID("gone"), nullptr);                  // and hides what it marks Hidden
    EXPECT_EQ(entries.byID("link"), nullptr);                  // only applications
}

TEST_F(DesktopEntriesTest, MatchesWindowClassesAndProgramsOnlyWhenUnambiguous) {
    DesktopEntries entries({user, system}, "en");
    ASSERT_NE(entries.byWindowClass("exampleedit"), nullptr);
    EXPECT_EQ(entries.byWindowClass("EXAMPLEEDIT")->id, "org.example.editor");
    EXPECT_EQ(entries.byWindowClass("unknown"), nullptr);

    EXPECT_EQ(entries.byProgram("example-edit")->id, "org.example.editor");
    EXPECT_EQ(entries.byProgram("my term")->id, "kde-term");  // quoted program with a space
    EXPECT_EQ(entries.byProgram("tool-bin")->id, "tool");      // past "env VAR=…", the hidden handler set aside
    EXPECT_EQ(entries.byProgram("env"), nullptr);
    EXPECT_EQ(entries.byProgram("flatpak"), nullptr);  // a launcher names no application
    EXPECT_EQ(entries.byProgram("twin"), nullptr);     // two applications: cannot tell
    EXPECT_EQ(entries.byProgram("vim"), nullptr);      // runs inside a terminal's window
}

TEST_F(DesktopEntriesTest, AnApplicationInstalledLaterIsFoundAfterReload) {
    DesktopEntries entries({user, system}, "en");
    EXPECT_FALSE(entries.reloadIfChanged(std::chrono::seconds(0)));
    writeFile(user / "org.example.New.desktop", entry("Name=New\nExec=new-app\n"));
    EXPECT_TRUE(entries.reloadIfChanged(std::chrono::seconds(0)));
    ASSERT_NE(entries.byProgram("new-app"), nullptr);
    EXPECT_EQ(entries.byProgram("new-app")->id, "org.example.new");
}

TEST(DocumentPaths, EditorTitlesNameExistingFilesOnly) {
    TempDir home;
    writeFile(home / "site/notes.txt", "x");
    writeFile(home / "my - project/a.txt", "x");
    fs::path notes = home / "site/notes.txt";

    EXPECT_EQ(pathFromEditorTitle("notes.txt (~/site) - GVIM", home.path()), notes);
    EXPECT_EQ(pathFromEditorTitle("notes.txt + (~/site) - VIM", home.path()), notes);  // unsaved mark
    EXPECT_EQ(pathFromEditorTitle("*notes.txt (" + (home / "site").string() + ") - gedit", home.path()), notes);
    EXPECT_EQ(pathFromEditorTitle("~/site/notes.txt - Mousepad", home.path()), notes);
    EXPECT_EQ(pathFromEditorTitle("● ~/site/notes.txt — Kate", home.path()), notes);
    EXPECT_EQ(pathFromEditorTitle("~/my - project/a.txt - Editor", home.path()), home / "my - project/a.txt");

    EXPECT_FALSE(pathFromEditorTitle("missing.txt (~/site) - GVIM", home.path()));
    EXPECT_FALSE(pathFromEditorTitle("~/site - Files", home.path()));  // a folder is not a document
    EXPECT_FALSE(pathFromEditorTitle("Re: lunch (1) - Mail", home.path()));
    EXPECT_FALSE(pathFromEditorTitle("notes.txt (site) - GVIM", home.path()));  // relative: from where?
}

TEST(DocumentPaths, ShellTitlesNameExistingFolders) {
    TempDir home;
    fs::create_directories(home / "site");
    EXPECT_EQ(folderFromShellTitle("marie@poste: ~/site", home.path()), home / "site");
    EXPECT_EQ(folderFromShellTitle("marie@poste:" + (home / "site").string(), home.path()), home / "site");
    EXPECT_EQ(folderFromShellTitle("marie@poste: ~", home.path()), home.path());
    EXPECT_FALSE(folderFromShellTitle("marie@poste: ~/nowhere", home.path()));
    EXPECT_FALSE(folderFromShellTitle("Meeting with bob@example.org: ~/site", home.path()));
    EXPECT_FALSE(folderFromShellTitle("vim notes.txt", home.path()));
}

// A terminal stand-in: a process whose children are "shells" in chosen folders,
// each running a "job" in another folder. All in one process group, ended together.
class FakeTerminal {
public:
    FakeTerminal(const std::vector<std::pair<fs::path, fs::path>>& shells) {
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setpgid(0, 0);
            for (const auto& [shellFolder, jobFolder] : shells) {
                if (::fork() != 0) continue;
                if (::chdir(shellFolder.c_str()) != 0) ::_exit(1);
                if (::fork() == 0) {
                    if (::chdir(jobFolder.c_str()) != 0) ::_exit(1);
                    ::execlp("sleep", "sleep", "60", nullptr);
                    ::_exit(1);
                }
                ::execlp("sleep", "sleep", "60", nullptr);
                ::_exit(1);
            }
            ::execlp("sleep", "sleep", "60", nullptr);
            ::_exit(1);
        }
        ::setpgid(pid_, pid_);
    }
    ~FakeTerminal() { ::kill(-pid_, SIGKILL); }
    int pid() const { return pid_; }

private:
    int pid_;
};

TEST(Processes, ATerminalWorksInItsDeepestSingleChildsFolder) {
    TempDir dir;
    fs::create_directories(dir / "shell");
    fs::create_directories(dir / "job");
    Processes processes;
    FakeTerminal terminal({{dir / "shell", dir / "job"}});
    // The tree is complete once the job has its folder.
    ASSERT_TRUE(testing::eventually([&] { return processes.terminalWorkingDirectory(terminal.pid()) == dir / "job"; }));

    FakeTerminal tabs({{dir / "shell", dir / "job"}, {dir / "shell", dir / "job"}});
    ASSERT_TRUE(testing::eventually([&] { return processes.children(tabs.pid()).size() == 2; }));
    EXPECT_FALSE(processes.terminalWorkingDirectory(tabs.pid()));  // two tabs: which one is in front?

    EXPECT_FALSE(processes.terminalWorkingDirectory(::getpid() + 1000000));  // no such process
    EXPECT_FALSE(processes.executable(::getpid() + 1000000));
}

} // namespace
} // namespace ombrelo::platform
