#include "store/VHDatabase.h"

#include <QThreadPool>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "lib/VHFatalError.h"
#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHPaths.h"
#include "lib/VHStrings.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHDatabaseSchema.h"
#include "store/VHMigration.h"
#include "store/VHStoreHooks.h"

namespace fs = std::filesystem;

namespace vh {

namespace {

std::string lowerGuidWithoutDashes() {
    std::string guid = VHLowercase(VHGenerateGUID());
    std::erase(guid, '-');
    return guid;
}

// The metadata folder is a private folder; false (logged) when it cannot be.
bool makeMetadataFolder(const std::string& folder) {
    std::error_code ec;
    if (fs::exists(folder, ec) && !fs::is_directory(folder, ec)) {
        VHLog(kLogDatabase, "Error! Unknown file exists at cache directory location : %@", folder);
        return false;
    }
    if (VHPaths::makePrivateDir(folder)) return true;
    VHLog(kLogDatabase, "Error! Cannot create cache directory at path : %@, error : %@", folder,
          std::strerror(errno));
    return false;
}

bool missingOrEmpty(const std::string& path) {
    std::error_code ec;
    return !fs::exists(path, ec) || (fs::is_regular_file(path, ec) && fs::file_size(path, ec) == 0);
}

}  // namespace

VHDatabase& VHDatabase::database() {
    // Never destroyed: the database thread must outlive every caller.
    static VHDatabase* instance = new VHDatabase;
    return *instance;
}

VHDatabase::VHDatabase()
    : thread_(std::make_unique<VHDatabaseThread>()),
      writer_(std::make_unique<VHWriteConnection>()),
      writes_(std::make_unique<VHWriteQueue>(
          *thread_, [this](const auto& jobs) { return writer_->runGroup(jobs); })),
      effects_(std::make_unique<QThreadPool>()) {
    effects_->setMaxThreadCount(1);
    writer_->setGeneration(&records_.generation());
}

VHDatabase::~VHDatabase() = default;

std::string VHDatabase::generateFileInternalName() {
    return lowerGuidWithoutDashes();
}

std::string VHDatabase::generateFileUploadName() {
    return VHFormat("U%@%@", VHGenerateGUID(), VHGenerateGUID());
}

std::string VHDatabase::databasePath() {
    {
        VHMutexLock lock(pathMutex_);
        if (!databasePath_.empty()) return databasePath_;
        std::string folder = VHPaths::metadataDir();
        if (makeMetadataFolder(folder)) {
            databasePath_ = VHPaths::join(folder, "files.db");
            return databasePath_;
        }
    }
    VHReportFatalError(kExitDataFolderFailure);
    return "";
}

// ---- Life cycle ---------------------------------------------------------------

bool VHDatabase::load() {
    if (loaded_) {
        VHLog(kLogDatabase, "Warning! Attempting to load database while it is already loaded.");
        return true;
    }
    std::string path = databasePath();
    if (path.empty()) return false;
    if (missingOrEmpty(path)) {
        VHMigration::checkIfMigrationNeeded();
        VHLog(kLogDatabase, "No database file found - creaing a new one.");
        if (!VHDatabaseSchema::createDatabase(path)) return false;
    }
    if (!thread_->run([&] { return openWriter(path); })) {
        VHLog(kLogDatabase, "Cannot open database or connection is broken!");
        VHReportFatalError(kExitDatabaseFailure);
        return false;
    }
    readers_.open(path);
    clearAllPathCaches();
    for (VHStringMap* map : {&archiveMap_, &deleteMap_, &renamingMap_, &blockMap_}) map->clear();
    loaded_ = true;
    deleteAllTempFiles();
    storage_.load();
    isEmpty_ = storage_.storageEmpty();
    return true;
}

bool VHDatabase::openWriter(const std::string& path) {
    if (!writer_->open(path)) return false;
    VHDatabaseSchema::checkDatabaseVersion(*writer_->sqlite());
    return true;
}

void VHDatabase::unload() {
    loaded_ = false;
    readers_.close();
    thread_->run([this] {
        failAllPages();
        writer_->close();
    });
    VHWaitForPool(*effects_);
    clearAllPathCaches();
    storage_.save();
    VHMutexLock lock(pathMutex_);
    databasePath_.clear();
}

void VHDatabase::clear() {
    std::string path = databasePath();
    unload();
    std::error_code ec;
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(path + suffix, ec);
    // The shares' journal positions describe the rows just removed: a kept
    // position would make the next catch-up skip everything before it.
    storage_.clear();
}

// ---- Shares -------------------------------------------------------------------

std::optional<ManagedShare> VHDatabase::shareWithId(const std::string& shareId) const {
    return storage_.shareWithId(shareId);
}

std::optional<ManagedShare> VHDatabase::shareWithPath(const std::string& path) const {
    return storage_.shareWithPath(path);
}

std::optional<ManagedShare> VHDatabase::shareForFile(const VHFile& file) const {
    return storage_.shareWithId(file.shareId);
}

std::vector<ManagedShare> VHDatabase::sharesForFile(const VHFile& file) const {
    std::vector<ManagedShare> found;
    if (auto share = storage_.shareWithId(file.shareId)) {
        found.push_back(*share);
        if (share->isSubfolderShare() && share->ParentShareId) {
            if (auto enclosing = storage_.shareWithId(*share->ParentShareId)) {
                found.push_back(*enclosing);
            }
        }
    }
    return found;
}

std::optional<ManagedShare> VHDatabase::subShareForFile(const VHFile& file) {
    return getSubshareForFile(file);
}

std::optional<ManagedShare> VHDatabase::shareForFolder(const std::string& folderId) const {
    return storage_.shareWithInternalName(folderId);
}

std::vector<ManagedShare> VHDatabase::subfolderSharesForShareId(const std::string& shareId) const {
    std::vector<ManagedShare> found;
    for (const ManagedShare& share : storage_.shares()) {
        if (share.isSubfolderShare() && share.ParentShareId == shareId) found.push_back(share);
    }
    return found;
}

std::optional<int32_t> VHDatabase::associationTypeForShare(const std::string& shareId) const {
    if (auto share = storage_.shareWithId(shareId)) return share->AssociationType;
    return std::nullopt;
}

void VHDatabase::updateShares(const ClientLoginResponse& response, const UserDomain& domain) {
    storage_.updateShares(response, domain);
    clearAllPathCaches();
}

// Cached paths may spell a share's name in any case, so all of them go.
bool VHDatabase::renameShare(const std::string& shareId, const std::string& newName) {
    if (!storage_.renameShare(shareId, newName)) return false;
    clearAllPathCaches();
    return true;
}

void VHDatabase::deleteShareData(const std::string& shareId) {
    storage_.deleteShareData(shareId);
    clearAllPathCaches();
}

void VHDatabase::deleteDomainShares(const GlobalLoginResponce& response) {
    storage_.deleteDomainShares(response);
    clearAllPathCaches();
}

void VHDatabase::setGlobalLoginResponce(const std::string& text) {
    storage_.setGlobalLoginResponce(text);
}

void VHDatabase::beginTermination() {
    shutdown_.beginTermination();
    storage_.shutdown().beginTermination();
}

}  // namespace vh
