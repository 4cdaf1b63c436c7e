#include "store/VHMigration.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>

#include "lib/VHAppInfo.h"
#include "lib/VHJsonRecord.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHStrings.h"
#include "lib/VHThreadSafety.h"
#include "store/VHPropertyList.h"

namespace fs = std::filesystem;

namespace vh {

namespace {

const char* const kBackupFolder = "UploadsBackup";

VHMutex gKeptMutex;
std::set<std::string> gKept VH_GUARDED_BY(gKeptMutex){kBackupFolder, "Logs"};

// The report left next to the rescued files.
class Readme {
  public:
    explicit Readme(const fs::path& folder) : out_(folder / "Readme.txt", std::ios::app) {}
    template <typename... Args>
    void append(std::string_view format, const Args&... args) {
        out_ << VHFormat(format, args...);
        out_.flush();
    }

  private:
    std::ofstream out_;
};

std::optional<VHJson> readJson(const fs::path& path) {
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    VHJson json = VHJson::parse(text.str(), nullptr, false);
    if (json.is_discarded() || !json.is_object()) return std::nullopt;
    return json;
}

std::string stringField(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : "";
}

// The upload's place below the backup folder: share name, then the file's
// path. Nothing when the side file tells nothing usable or names an unsafe
// path.
std::optional<fs::path> backupPlace(const VHJson& info,
                                    const std::map<std::string, std::string>& shares) {
    std::string path = stringField(info, "CurrentPath");
    std::string shareName;
    auto file = info.find("File");
    if (file != info.end() && file->is_object()) {
        auto share = shares.find(stringField(*file, "ShareId"));
        if (share != shares.end()) shareName = share->second;
        if (path.empty() && !stringField(*file, "ShareId").empty()) {
            path = stringField(*file, "PublicName");
        }
    }
    if (path.empty()) return std::nullopt;
    fs::path place = VHIsSafePathComponent(shareName) ? fs::path(shareName) : fs::path();
    for (const std::string& part : VHSplit(path, '/')) {
        if (part.empty()) continue;
        if (!VHIsSafePathComponent(part)) return std::nullopt;
        place /= part;
    }
    if (place.empty()) return std::nullopt;
    return place;
}

fs::path freePlace(const fs::path& wanted) {
    fs::path place = wanted;
    std::error_code ec;
    for (int counter = 2; fs::exists(place, ec); ++counter) {
        place = wanted.parent_path() / VHFormat("%@ (%d)", wanted.filename().string(), counter);
    }
    return place;
}

bool moveTo(const fs::path& from, const fs::path& to, std::string& error) {
    std::error_code ec;
    fs::create_directories(to.parent_path(), ec);
    fs::rename(from, to, ec);
    error = ec.message();
    return !ec;
}

void rescueUpload(const fs::path& upload, const fs::path& backup,
                  const std::map<std::string, std::string>& shares, Readme& readme) {
    std::string name = upload.filename().string();
    std::optional<VHJson> info = readJson(upload.string() + ".inf");
    std::optional<fs::path> place = info ? backupPlace(*info, shares) : std::nullopt;
    std::string error;
    if (place) {
        fs::path target = freePlace(backup / *place);
        if (moveTo(upload, target, error)) {
            readme.append("%@: full path is %@\n", name, target.string());
            VHLog(kLogMain, "Move file %@ to %@ location, full path is %@", upload.string(),
                  backup.string(), target.string());
        } else {
            readme.append("%@: was unable to move to the backup path %@\n", name, target.string());
            VHLog(kLogMain, "Cannot move file %@ to %@ location: error %@", upload.string(),
                  target.string(), error);
        }
        return;
    }
    readme.append("%@: unknown file path, no information found\n", name);
    if (moveTo(upload, freePlace(backup / (name + ".original")), error)) {
        VHLog(kLogMain, "Moved file %@ to .original location", upload.string());
    } else {
        readme.append("%@: was unable to move to the backup folder\n", name);
        VHLog(kLogMain, "Cannot move file %@ to .original location: error %@", upload.string(),
              error);
    }
}

}  // namespace

void VHMigration::keepMetadataEntry(const std::string& name) {
    VHMutexLock lock(gKeptMutex);
    gKept.insert(name);
}

std::string VHMigration::metadataDir() {
    return VHPaths::metadataDir();
}
std::string VHMigration::metadataDbPath() {
    return VHPaths::join(metadataDir(), "shares.db");
}
std::string VHMigration::journalPath() {
    return VHPaths::join(metadataDir(), "journal.db");
}
std::string VHMigration::uploadsPath() {
    return VHPaths::join(metadataDir(), "Uploads");
}

bool VHMigration::version1DatabaseAvailable() {
    return VHPropertyList::read(metadataDbPath()) || VHPropertyList::read(journalPath());
}

bool VHMigration::version1UploadsAvailable() {
    std::error_code ec;
    return fs::is_directory(uploadsPath(), ec) && !fs::is_empty(uploadsPath(), ec);
}

void VHMigration::checkIfMigrationNeeded() {
    VHLog(kLogMain, "Checking if migration from version 1.x is needed....");
    if (!version1DatabaseAvailable()) {
        VHLog(kLogMain, "No version 1.x database found.");
        return;
    }
    VHLog(kLogMain,
          "Found version 1.x database. Checking whether backup of unfinished uploads is needed...");
    if (version1UploadsAvailable()) {
        VHLog(kLogMain, "Some uploads found - moving them to UploadsBackup");
        backupUploadsToFolder();
        VHLog(kLogMain, "Finished copying of unfinished uploads to the path %@",
              VHPaths::join(metadataDir(), kBackupFolder));
    } else {
        VHLog(kLogMain, "No uploads found - just cleaning up.");
    }
    removeFirstGenerationEntries();
}

void VHMigration::backupUploadsToFolder() {
    fs::path backup = VHPaths::join(metadataDir(), kBackupFolder);
    std::error_code ec;
    fs::create_directories(backup, ec);
    if (ec) {
        VHLog(kLogMain, "Error! Cannot create UploadsBackup directory at path : %@, error : %@",
              backup.string(), ec.message());
        return;
    }
    Readme readme(backup);
    readme.append("This folder contains files which were not uploaded by the %@\n", kAppTitle);
    readme.append("Starting copying of unfinished uploads to the backup directory\n\n");
    std::map<std::string, std::string> shares = shareNames();
    std::vector<fs::path> uploads;
    for (const fs::directory_entry& entry : fs::directory_iterator(uploadsPath(), ec)) {
        if (!VHEndsWith(entry.path().filename().string(), ".inf")) uploads.push_back(entry.path());
    }
    for (const fs::path& upload : uploads) rescueUpload(upload, backup, shares, readme);
}

std::map<std::string, std::string> VHMigration::shareNames() {
    std::map<std::string, std::string> names;
    std::optional<VHPropertyList> list = VHPropertyList::read(metadataDbPath());
    if (!list) return names;
    for (const std::string& text : list->arrays["shares"]) {
        VHJson share = VHJson::parse(text, nullptr, false);
        if (!share.is_object()) continue;
        std::string id = stringField(share, "ShareId");
        if (!id.empty()) names[id] = stringField(share, "ShareName");
    }
    return names;
}

void VHMigration::removeFirstGenerationEntries() {
    std::set<std::string> kept;
    {
        VHMutexLock lock(gKeptMutex);
        kept = gKept;
    }
    std::error_code ec;
    std::vector<fs::path> doomed;
    for (const fs::directory_entry& entry : fs::directory_iterator(metadataDir(), ec)) {
        if (!kept.count(entry.path().filename().string())) doomed.push_back(entry.path());
    }
    for (const fs::path& path : doomed) fs::remove_all(path, ec);
}

}  // namespace vh
