#include "hosts/linux/desktop/ApplicationIdentity.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
class ApplicationIdentityTest : public testing::Test {
protected:
    void write(const std::string& path, const std::string& text) {
        const std::filesystem::path full(folder.path() + "/" + path);
        std::filesystem::create_directories(full.parent_path());
        std::ofstream(full) << text;
    }
    void SetUp() override {
        write("user/mine.desktop", "[Desktop Entry]\nName=Mine\nExec=\"/opt/mine\" %U\n");
        write("system/mine.desktop", "[Desktop Entry]\nName=Shadowed\nExec=other\n");
        write("system/org.gnome.TextEditor.desktop", "[Desktop Entry]\nName=Text Editor\nExec=gnome-text-editor %U\n"
                                                     "[Desktop Action new]\nName=New Window\nExec=wrong\n");
        write("system/kde/konsole.desktop", "[Desktop Entry]\nName=Konsole\nStartupWMClass=Konsole-Class\n");
        write("system/org.example.Boxed.desktop", "[Desktop Entry]\nName=Boxed\nExec=/usr/bin/flatpak run x\n");
        write("system/script.desktop", "[Desktop Entry]\nName=Script\nExec=env A=b python3 tool.py\n");
        write("system/broken.desktop", std::string("\0\xff[Desktop Entry\nName", 22));
    }
    TemporaryFolder folder;
    ApplicationIdentity identities{{folder.path() + "/user", folder.path() + "/missing", folder.path() + "/system"}};
};

TEST_F(ApplicationIdentityTest, FindsTheDesktopFileByTheSurestSign) {
    struct Case {
        const char* what;
        WindowOwner owner;
        const char* bundleId;
        const char* name;
    };
    const Case cases[] = {
        {"the program named in the file", {.executable = "/opt/mine"}, "mine", "Mine"},
        {"class as the last part of the id", {.className = "TextEditor"}, "org.gnome.TextEditor", "Text Editor"},
        {"GTK's own id",
         {.className = "Other", .applicationId = "org.gnome.TextEditor"},
         "org.gnome.TextEditor",
         "Text Editor"},
        {"the class a file claims", {.className = "konsole-class"}, "kde-konsole", "Konsole"},
        {"the sandbox before all else",
         {.className = "TextEditor", .flatpakId = "org.example.Boxed"},
         "org.example.Boxed",
         "Boxed"},
        {"an action's Exec is not the program", {.executable = "/usr/bin/wrong"}, "wrong", "wrong"},
        {"nor is that of a file which another one hides", {.executable = "/usr/bin/other"}, "other", "other"},
        {"an interpreter is nobody", {.className = "Tk", .executable = "/usr/bin/python3.11"}, "Tk", "Tk"},
        {"unknown", {.instanceName = "xterm", .className = "XTerm", .executable = "/usr/bin/xterm"}, "XTerm", "XTerm"},
        {"nothing at all", {}, "", ""},
    };
    for (const Case& c : cases) {
        const RunningApplication found = identities.identify(c.owner);
        EXPECT_EQ(found.bundleId, c.bundleId) << c.what;
        EXPECT_EQ(found.name, c.name) << c.what;
    }
}

TEST_F(ApplicationIdentityTest, KeepsEveryNameInLowerCaseForExclusions) {
    const RunningApplication found = identities.identify({.instanceName = "Navigator",
                                                          .className = "TextEditor",
                                                          .executable = "/usr/bin/Gnome-Text-Editor",
                                                          .flatpakId = "org.Vendor.App"});
    for (const char* const name : {"org.gnome.texteditor", "org.vendor.app", "texteditor", "navigator",
                                   "gnome-text-editor", "/usr/bin/gnome-text-editor"})
        EXPECT_EQ(std::count(found.identities.begin(), found.identities.end(), name), 1) << name;
}

TEST_F(ApplicationIdentityTest, ReadsProcesses) {
    write("proc/7/root/.flatpak-info", "[Instance]\nname=wrong\n[Application]\nname=org.example.Boxed\n");
    std::filesystem::create_symlink("/usr/bin/old (deleted)", folder.path() + "/proc/7/exe");
    EXPECT_EQ(ApplicationIdentity::flatpakIdOf(7, folder.path() + "/proc"), "org.example.Boxed");
    EXPECT_EQ(ApplicationIdentity::executableOf(7, folder.path() + "/proc"), "/usr/bin/old");
    EXPECT_EQ(ApplicationIdentity::executableOf(8, folder.path() + "/proc"), "");
    EXPECT_EQ(ApplicationIdentity::flatpakIdOf(8, folder.path() + "/proc"), "");
}
} // namespace
} // namespace snipwren
