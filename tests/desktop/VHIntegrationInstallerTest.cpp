// --install-integration's files, as the session manager, systemd and GNOME
// Files read them from the test's private XDG folders.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "desktop/VHIntegrationInstaller.h"
#include "lib/VHPaths.h"

namespace vh::test {
namespace {

namespace fs = std::filesystem;

std::string contentsOf(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string lineStarting(const std::string& text, const std::string& key) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key)) return line;
    }
    return "";
}

std::string dataPath(const std::string& relative) {
    return VHPaths::join(VHPaths::dataHome(), relative);
}

std::string configPath(const std::string& relative) {
    return VHPaths::join(VHPaths::configHome(), relative);
}

TEST(IntegrationInstaller, WritesEveryFileAndReplacesEarlierCopies) {
    const std::string unit = configPath("systemd/user/varnholt.service");
    const std::string autostart = configPath("autostart/varnholt.desktop");
    const std::string extension = dataPath("nautilus-python/extensions/varnholt-nautilus.py");
    const std::string emblems = dataPath("icons/hicolor/scalable/emblems");
    const std::string theme = dataPath("icons/hicolor");
    // A cache another program left must not hide the new emblems.
    fs::create_directories(theme);
    std::ofstream(theme + "/icon-theme.cache") << "stale";
    timespec past[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (theme + "/icon-theme.cache").c_str(), past, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, theme.c_str(), past, 0), 0);

    auto result = VHIntegrationInstaller::install("/opt/varnholt/bin/varnholt");
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(lineStarting(contentsOf(unit), "ExecStart="),
              "ExecStart=/opt/varnholt/bin/varnholt --headless");
    EXPECT_EQ(lineStarting(contentsOf(unit), "KillSignal="), "KillSignal=SIGTERM");
    EXPECT_EQ(lineStarting(contentsOf(autostart), "Exec="), "Exec=/opt/varnholt/bin/varnholt");
    EXPECT_NE(contentsOf(extension).find("Nautilus.InfoProvider"), std::string::npos);
    for (const char* name : {"downloaded", "online", "syncing", "offline", "locked"}) {
        std::string emblem = emblems + "/emblem-varnholt-" + name + ".svg";
        EXPECT_NE(contentsOf(emblem).find("<svg"), std::string::npos) << emblem;
    }
    EXPECT_EQ(result.written.size(), 9u);
    struct stat themeStat {};
    ASSERT_EQ(stat(theme.c_str(), &themeStat), 0);
    EXPECT_GT(themeStat.st_mtim.tv_sec, 1000);

    // Again, for a program that moved, over a copy somebody changed.
    std::ofstream(extension) << "changed";
    result = VHIntegrationInstaller::install("/usr/bin/varnholt");
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(lineStarting(contentsOf(unit), "ExecStart="),
              "ExecStart=/usr/bin/varnholt --headless");
    EXPECT_NE(contentsOf(extension).find("Nautilus.InfoProvider"), std::string::npos);
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(extension).parent_path())) {
        (void)entry;
        ++files;
    }
    EXPECT_EQ(files, 1u) << "a temporary copy was left behind";
}

TEST(IntegrationInstaller, QuotesAProgramPathThatNeedsIt) {
    // Seen by systemd as one word, with no specifier or variable in it.
    EXPECT_EQ(VHIntegrationInstaller::systemdArgument("/usr/bin/varnholt"), "/usr/bin/varnholt");
    EXPECT_EQ(VHIntegrationInstaller::systemdArgument("/home/a b/100%/$HOME/varnholt"),
              "\"/home/a b/100%%/$$HOME/varnholt\"");
    EXPECT_EQ(VHIntegrationInstaller::systemdArgument("/x/say \"hi\"\\"),
              "\"/x/say \\\"hi\\\"\\\\\"");
    // A desktop entry: quoting and field codes, then the key's string escapes.
    EXPECT_EQ(VHIntegrationInstaller::desktopExecArgument("/usr/bin/varnholt"),
              "/usr/bin/varnholt");
    EXPECT_EQ(VHIntegrationInstaller::desktopExecArgument("/home/a b/100%/varnholt"),
              "\"/home/a b/100%%/varnholt\"");
    EXPECT_EQ(VHIntegrationInstaller::desktopExecArgument("/x/$y`\"\\"),
              "\"/x/\\\\$y\\\\`\\\\\"\\\\\\\\\"");

    auto result = VHIntegrationInstaller::install("/home/a b/varnholt");
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(lineStarting(contentsOf(configPath("autostart/varnholt.desktop")), "Exec="),
              "Exec=\"/home/a b/varnholt\"");
}

TEST(IntegrationInstaller, StopsAtAFolderItCannotMake) {
    // The configuration folder is a file: the unit cannot be written.
    std::string config = VHPaths::configHome();
    fs::remove_all(config);
    std::ofstream(config) << "not a folder";
    auto result = VHIntegrationInstaller::install("/usr/bin/varnholt");
    EXPECT_NE(result.error.find("varnholt.service"), std::string::npos) << result.error;
    ASSERT_EQ(result.written.size(), 1u);  // the extension, written before
    EXPECT_FALSE(VHIntegrationInstaller::install("/usr/bin/var\nnholt").error.empty());
}

}  // namespace
}  // namespace vh::test
