#include "support/VHShareTree.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;

std::string joinSorted(std::vector<std::string> lines) {
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

std::string fileLine(const std::string& relative, const fs::path& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return relative + " unreadable";
    return relative + " " + std::to_string(st.st_size) + " " + VHSha256Hex(VHReadWhole(path));
}

std::set<std::string> linesOf(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.insert(line);
    return lines;
}

// "only on the drive" and "only on the service" lines.
std::string difference(const std::string& drive, const std::string& service) {
    std::set<std::string> a = linesOf(drive), b = linesOf(service);
    std::vector<std::string> onlyDrive, onlyService;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(onlyDrive));
    std::set_difference(b.begin(), b.end(), a.begin(), a.end(), std::back_inserter(onlyService));
    std::string text = "only on the drive:\n";
    for (const std::string& line : onlyDrive) text += "  " + line + "\n";
    text += "only on the service:\n";
    for (const std::string& line : onlyService) text += "  " + line + "\n";
    return text;
}

}  // namespace

std::string VHFolderTree(const std::string& folder) {
    std::vector<std::string> lines;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::end(it);
         it.increment(error)) {
        std::string relative = "/" + fs::relative(it->path(), folder).string();
        if (it->is_symlink()) continue;
        if (it->is_directory()) {
            lines.push_back(relative + "/");
        } else {
            lines.push_back(fileLine(relative, it->path()));
        }
    }
    if (error) lines.push_back("listing failed: " + error.message());
    return joinSorted(lines);
}

std::string VHServiceTree(const VHEmulatorProcess& emulator, const std::string& shareId) {
    std::optional<nlohmann::json> tree = emulator.tree(shareId);
    if (!tree) return "no tree\n";
    std::vector<std::string> lines;
    for (const nlohmann::json& item : tree->value("items", nlohmann::json::array())) {
        std::string path = item.at("path");
        if (!item.value("isFile", false)) {
            lines.push_back(path + "/");
        } else {
            lines.push_back(path + " " + std::to_string(item.value("size", int64_t{-1})) + " " +
                            item.value("sha256", ""));
        }
    }
    return joinSorted(lines);
}

testing::AssertionResult VHServiceMatchesDrive(const VHEmulatorProcess& emulator,
                                               const std::string& shareId,
                                               const std::string& driveFolder,
                                               std::chrono::seconds timeout) {
    std::string drive = VHFolderTree(driveFolder);
    if (drive.empty()) return testing::AssertionFailure() << driveFolder << " lists nothing";
    std::string service;
    bool same = VHTestClient::waitFor(
        [&] {
            service = VHServiceTree(emulator, shareId);
            return service == drive;
        },
        timeout);
    if (same) return testing::AssertionSuccess();
    // The drive may have changed meanwhile (a late removal): look again.
    drive = VHFolderTree(driveFolder);
    service = VHServiceTree(emulator, shareId);
    if (drive == service) return testing::AssertionSuccess() << "after a second look";
    return testing::AssertionFailure()
           << "share " << shareId << " after " << timeout.count() << " s:\n"
           << difference(drive, service);
}

std::string VHTail(const std::string& text, size_t count) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    size_t first = lines.size() > count ? lines.size() - count : 0;
    std::string tail;
    for (size_t i = first; i < lines.size(); ++i) tail += lines[i] + "\n";
    return tail;
}

}  // namespace vh::test
