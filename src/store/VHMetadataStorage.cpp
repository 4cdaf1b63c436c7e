#include "store/VHMetadataStorage.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <filesystem>
#include <map>

#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHStrings.h"
#include "store/VHPropertyList.h"
#include "store/VHStoreHooks.h"

namespace fs = std::filesystem;

namespace vh {

namespace {

const char* const kShares = "shares";
const char* const kGlobalResponce = "globalresponce";
constexpr int kSaveDelayMs = 5000;

std::string domainIdOf(const UserDomain& domain) {
    return domain.Domain ? domain.Domain->DomainId.value_or("") : "";
}

std::optional<int32_t> typeForShare(const ManagedShare& share,
                                    const ClientLoginResponse& response) {
    if (!response.SharingCompanies || !share.CompanyId) return std::nullopt;
    for (const SharingCompany& company : *response.SharingCompanies) {
        if (company.CompanyId == share.CompanyId) return company.AssociationType;
    }
    return std::nullopt;
}

}  // namespace

VHMetadataStorage::VHMetadataStorage() = default;

VHMetadataStorage::~VHMetadataStorage() {
    VHMutexLock lock(mutex_);
    if (!saveTimer_) return;
    QObject::disconnect(saveTimer_, &QTimer::timeout, nullptr, nullptr);
    if (QThread::currentThread() == saveTimer_->thread()) {
        delete saveTimer_;
    } else {
        saveTimer_->deleteLater();
    }
}

std::string VHMetadataStorage::storagePath() {
    return VHPaths::join(VHPaths::dataRoot(), "shares.db");
}

std::string VHMetadataStorage::keyFromPath(const std::string& path) {
    return VHLowercase(VHDecomposed(path));
}

// ---- Stored file ----------------------------------------------------------

void VHMetadataStorage::load() {
    std::vector<std::string> folders;
    std::string response;
    {
        VHMutexLock lock(mutex_);
        forgetAll();
        std::optional<VHPropertyList> list = VHPropertyList::read(storagePath());
        for (const std::string& text : list ? list->arrays[kShares] : std::vector<std::string>{}) {
            std::string error;
            std::optional<ManagedShare> share = VHParseRecord<ManagedShare>(text, &error);
            if (!share) {
                VHLog(kLogMain, "Warning! Cannot deserialize share from metadata storage. Error %@",
                      error);
                continue;
            }
            if (share->shareId().empty()) {
                VHLog(kLogMain, "Warning! Deserialized share doesn't have share id!");
                continue;
            }
            if (!share->DisplayName) share->DisplayName = share->ShareName.value_or("");
            share->TransmitCounter = 0;
            registerShare(*share);
            folders.push_back(share->shareId());
        }
        if (list) response = list->strings[kGlobalResponce];
        globalLoginResponce_ = response;
        addTempShare();
    }
    for (const std::string& shareId : folders) createFolderForShare(shareId);
    if (response.empty()) return;
    std::string error;
    if (auto parsed = VHParseRecord<GlobalLoginResponce>(response, &error)) {
        VHStoreHooks::app().globalLoginResponceLoaded(*parsed);
    } else {
        VHLog(kLogMain, "Warning! Failed to parse previously saved global login responce: error %@",
              error);
    }
}

VHPropertyList VHMetadataStorage::snapshot() const {
    VHPropertyList list;
    std::vector<std::string>& shares = list.arrays[kShares];
    for (const auto& [shareId, share] : byId_) {
        if (shareId != kTempShareId) shares.push_back(VHSerializeRecord(share));
    }
    list.strings[kGlobalResponce] = globalLoginResponce_;
    return list;
}

bool VHMetadataStorage::save() {
    VHMutexLock saving(saveMutex_);
    VHPropertyList list;
    {
        // This save covers every change so far. Cancelled before the
        // snapshot, so a request made after it is never cancelled; queued,
        // so that it comes after the requests queued before it.
        VHMutexLock lock(mutex_);
        if (saveTimer_) {
            QMetaObject::invokeMethod(saveTimer_,
                                      VHHandOff([timer = saveTimer_] { timer->stop(); }),
                                      Qt::QueuedConnection);
        }
        list = snapshot();
    }
    VHLog(kLogMain, "Saving file metadata...");
    std::error_code ec;
    fs::create_directories(VHPaths::dataRoot(), ec);
    std::string error;
    if (list.write(storagePath(), &error)) return true;
    VHLog(kLogMain, "Warning! Cannot save file metadata to %@ : %@", storagePath(), error);
    return false;
}

QTimer* VHMetadataStorage::saveTimer() {
    VHMutexLock lock(mutex_);
    QCoreApplication* app = QCoreApplication::instance();
    if (!saveTimer_ && app) {
        saveTimer_ = new QTimer;
        saveTimer_->setSingleShot(true);
        saveTimer_->setInterval(kSaveDelayMs);
        QObject::connect(saveTimer_, &QTimer::timeout, saveTimer_, [this] { save(); });
        saveTimer_->moveToThread(app->thread());
    }
    return saveTimer_;
}

void VHMetadataStorage::saveDelayed() {
    QTimer* timer = shutdown_.terminating() ? nullptr : saveTimer();
    if (!timer) {
        save();
        return;
    }
    // A new request restarts the countdown, so a burst is written once.
    QMetaObject::invokeMethod(timer, VHHandOff([timer] { timer->start(); }));
}

void VHMetadataStorage::clear() {
    VHMutexLock lock(mutex_);
    globalLoginResponce_.clear();
    forgetAll();
    addTempShare();
    std::error_code ec;
    for (const fs::directory_entry& entry : fs::directory_iterator(VHPaths::dataRoot(), ec)) {
        if (!VHEndsWith(entry.path().filename().string(), ".db")) continue;
        std::error_code removeError;
        if (!fs::remove(entry.path(), removeError)) {
            VHLog(kLogMain, "Warning! Cannot remove metadata file %@ : error %@",
                  entry.path().string(), removeError.message());
        }
    }
}

// ---- Registration ---------------------------------------------------------

void VHMetadataStorage::forgetAll() {
    byId_.clear();
    idByPathKey_.clear();
}

void VHMetadataStorage::registerShare(const ManagedShare& share) {
    byId_[share.shareId()] = share;
    idByPathKey_[keyFromPath("/" + share.displayName())] = share.shareId();
}

void VHMetadataStorage::unregisterShare(const std::string& shareId) {
    auto it = byId_.find(shareId);
    if (it == byId_.end()) return;
    auto key = idByPathKey_.find(keyFromPath("/" + it->second.displayName()));
    if (key != idByPathKey_.end() && key->second == shareId) idByPathKey_.erase(key);
    byId_.erase(it);
}

void VHMetadataStorage::addTempShare() {
    ManagedShare share;
    share.ShareId = kTempShareId;
    share.ShareName = share.DisplayName = kTempFolder;
    share.CreationDate = share.ModificationDate = VHDate::now();
    registerShare(share);
}

bool VHMetadataStorage::pathKeyTaken(const std::string& displayName,
                                     const std::string& exceptShareId) const {
    auto it = idByPathKey_.find(keyFromPath("/" + displayName));
    return it != idByPathKey_.end() && it->second != exceptShareId;
}

std::string VHMetadataStorage::freeNumberedName(const std::string& name,
                                                const std::string& shareId) const {
    for (int number = 2;; ++number) {
        std::string candidate = VHFormat("%@ (%d)", name, number);
        if (!pathKeyTaken(candidate, shareId)) return candidate;
    }
}

std::string VHMetadataStorage::uniqueDisplayName(const std::string& shareId,
                                                 const std::string& name) const {
    std::string candidate = name;
    for (int number = 2; pathKeyTaken(candidate, shareId); ++number) {
        candidate = VHFormat("%@%d", name, number);
    }
    return candidate;
}

std::string VHMetadataStorage::remoteRenameName(const ManagedShare& stored,
                                                const std::string& newShareName) const {
    std::string candidate = stored.displayName() == stored.ShareName.value_or("")
                                ? newShareName
                                : VHFormat("%@ (%@)", stored.displayName(), newShareName);
    return pathKeyTaken(candidate, stored.shareId()) ? freeNumberedName(candidate, stored.shareId())
                                                     : candidate;
}

// ---- Login answers ----------------------------------------------------------

void VHMetadataStorage::updateShares(const ClientLoginResponse& response,
                                     const UserDomain& domain) {
    VHShutdownBlocker block(shutdown_);
    std::vector<std::string> created;
    std::vector<std::string> removed;
    // The kernel keeps a gone or renamed share's folder under its old name
    // until told: dropping the root's listing does not drop that entry.
    std::vector<std::string> oldPaths;
    {
        VHMutexLock lock(mutex_);
        std::set<std::string> known;
        std::map<std::string, std::string> namesBefore;
        for (const auto& [shareId, share] : byId_) {
            if (shareId != kTempShareId && share.DomainId.value_or("") == domainIdOf(domain)) {
                known.insert(shareId);
                namesBefore[shareId] = share.displayName();
            }
        }
        for (const ManagedShare& share :
             response.ManagedShares.value_or(std::vector<ManagedShare>{}))
            applyManagedShare(share, response, domain, known, created);
        for (const std::string& shareId : known) {
            VHLog(kLogMain, "Share %@ deleted remotely - cleaning up all share data.",
                  byId_[shareId].displayName());
            removed.push_back(shareId);
        }
        for (const auto& [shareId, name] : namesBefore) {
            auto now = byId_.find(shareId);
            if (known.count(shareId) || now == byId_.end() || now->second.displayName() != name) {
                oldPaths.push_back("/" + name);
            }
        }
        addTempShare();
    }
    for (const std::string& shareId : removed) deleteShareData(shareId);
    for (const std::string& shareId : created) createFolderForShare(shareId);
    saveDelayed();
    VHStoreHooks::app().refreshFinderRootFolder();
    if (!oldPaths.empty()) VHStoreHooks::app().refreshFinderFolders(oldPaths);
}

void VHMetadataStorage::applyManagedShare(ManagedShare share, const ClientLoginResponse& response,
                                          const UserDomain& domain, std::set<std::string>& known,
                                          std::vector<std::string>& created) {
    std::string shareId = share.shareId();
    if (shareId.empty() || shareId == kTempShareId) return;
    known.erase(shareId);
    share.ShareName = VHDecomposed(share.ShareName.value_or(""));
    if (auto type = typeForShare(share, response)) share.AssociationType = *type;
    if (share.ShareAcl && share.ShareAcl->AclToken) {
        share.AclToken = VHRemovePercentEscapes(*share.ShareAcl->AclToken);
    }
    share.DomainId = domainIdOf(domain);
    share.GateWayUrl = domain.Domain ? domain.Domain->Url : std::nullopt;
    if (!share.Synchronize) share.Synchronize = 0;
    auto stored = byId_.find(shareId);
    if (stored == byId_.end()) {
        share.CreationDate = share.ModificationDate = VHDate::now();
        share.LastApplyedJournalTick = -1;  // never caught up
        share.DisplayName = pathKeyTaken(*share.ShareName, shareId)
                                ? freeNumberedName(*share.ShareName, shareId)
                                : *share.ShareName;
        VHLog(kLogMain, "Adding new share - %@. Local name will be %@", *share.ShareName,
              *share.DisplayName);
        registerShare(share);
        created.push_back(shareId);
        return;
    }
    ManagedShare old = stored->second;
    share.TransmitCounter = old.TransmitCounter;
    share.LastApplyedJournalTick = old.LastApplyedJournalTick;
    share.CreationDate = old.CreationDate;
    share.ModificationDate = old.ModificationDate;
    unregisterShare(shareId);
    if (old.ShareName == share.ShareName) {
        share.DisplayName = old.DisplayName;
    } else {
        share.DisplayName = remoteRenameName(old, *share.ShareName);
        VHLog(kLogMain, "Share %@ renamed remotely - renaming to %@.", old.displayName(),
              *share.DisplayName);
    }
    registerShare(share);
}

bool VHMetadataStorage::renameShare(const std::string& shareId, const std::string& newName) {
    {
        VHMutexLock lock(mutex_);
        auto it = byId_.find(shareId);
        if (it == byId_.end()) return false;
        if (it->second.displayName() == newName) return true;
        std::string trimmed = VHTrimmed(newName);
        if (trimmed.empty()) return false;
        ManagedShare share = it->second;
        share.DisplayName = uniqueDisplayName(shareId, trimmed);
        unregisterShare(shareId);
        registerShare(share);
    }
    saveDelayed();
    return true;
}

void VHMetadataStorage::deleteShareData(const std::string& shareId) {
    {
        VHMutexLock lock(mutex_);
        unregisterShare(shareId);
    }
    removeFolderOfShare(shareId);
    saveDelayed();
}

void VHMetadataStorage::deleteDomainShares(const GlobalLoginResponce& response) {
    std::set<std::string> domains;
    if (response.PrimaryUserDomain) domains.insert(domainIdOf(*response.PrimaryUserDomain));
    for (const UserDomain& domain : response.UserDomains.value_or(std::vector<UserDomain>{})) {
        domains.insert(domainIdOf(domain));
    }
    std::vector<std::string> doomed;
    {
        VHMutexLock lock(mutex_);
        for (const auto& [shareId, share] : byId_) {
            if (shareId == kTempShareId || domains.count(share.DomainId.value_or(""))) continue;
            VHLog(kLogMain, "Deleting share %@ data since it is not in user domains anymore.",
                  share.displayName());
            doomed.push_back(shareId);
        }
    }
    for (const std::string& shareId : doomed) deleteShareData(shareId);
}

bool VHMetadataStorage::setShareJournalTick(const std::string& shareId, int64_t tick, VHDate when) {
    VHMutexLock lock(mutex_);
    auto it = byId_.find(shareId);
    if (it == byId_.end()) return false;
    it->second.LastApplyedJournalTick = tick;
    it->second.ModificationDate = when;
    return true;
}

// ---- Cache folders ----------------------------------------------------------

void VHMetadataStorage::createFolderForShare(const std::string& shareId) {
    if (!VHIsSafePathComponent(shareId)) {
        VHLog(kLogMain, "Warning! Cannot create cache folder for share %@ : error %@", shareId,
              "the share id is not a safe folder name");
        return;
    }
    std::string path = VHStoreHooks::cache().shareCachePath(shareId);
    if (path.empty()) return;
    std::error_code ec;
    if (fs::exists(path, ec) && !fs::is_directory(path, ec)) {
        VHLog(kLogMain,
              "Warning! Cannot create cache folder for share %@ : file with the same name already "
              "exists there.",
              shareId);
        return;
    }
    fs::create_directories(path, ec);
    if (ec) {
        VHLog(kLogMain, "Warning! Cannot create cache folder for share %@ : error %@", shareId,
              ec.message());
        return;
    }
    if (auto share = shareWithId(shareId))
        VHStoreHooks::cache().createMissingExAttrsForShare(*share);
}

void VHMetadataStorage::removeFolderOfShare(const std::string& shareId) {
    if (!VHIsSafePathComponent(shareId)) return;
    VHStoreHooks::cache().deleteExAttrsForShare(shareId);
    std::string path = VHStoreHooks::cache().shareCachePath(shareId);
    if (path.empty()) return;
    QThreadPool::globalInstance()->start(VHHandOff([path] {
        std::error_code ec;
        fs::remove_all(path, ec);
    }));
}

// ---- Lookups ----------------------------------------------------------------

std::vector<ManagedShare> VHMetadataStorage::shares() const {
    VHMutexLock lock(mutex_);
    std::vector<ManagedShare> all;
    for (const auto& [shareId, share] : byId_) all.push_back(share);
    return all;
}

std::optional<ManagedShare> VHMetadataStorage::shareWithId(const std::string& shareId) const {
    VHMutexLock lock(mutex_);
    auto it = byId_.find(shareId);
    if (it == byId_.end()) return std::nullopt;
    return it->second;
}

std::optional<ManagedShare> VHMetadataStorage::shareWithInternalName(
    const std::string& internalName) const {
    if (internalName.empty()) return std::nullopt;
    VHMutexLock lock(mutex_);
    for (const auto& [shareId, share] : byId_) {
        if (share.internalName() == internalName) return share;
    }
    return std::nullopt;
}

std::optional<ManagedShare> VHMetadataStorage::shareWithPath(const std::string& path) const {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
    VHMutexLock lock(mutex_);
    auto key = idByPathKey_.find(keyFromPath(trimmed));
    if (key == idByPathKey_.end()) return std::nullopt;
    auto it = byId_.find(key->second);
    if (it == byId_.end()) return std::nullopt;
    return it->second;
}

std::optional<ManagedShare> VHMetadataStorage::shareWithFilePath(const std::string& path) const {
    std::vector<std::string> components = VHPathComponents(path);
    if (components.size() < 2 || components[0] != "/") return std::nullopt;
    return shareWithPath("/" + components[1]);
}

bool VHMetadataStorage::storageEmpty() const {
    VHMutexLock lock(mutex_);
    for (const auto& [shareId, share] : byId_) {
        if (shareId != kTempShareId) return false;
    }
    return true;
}

std::string VHMetadataStorage::globalLoginResponce() const {
    VHMutexLock lock(mutex_);
    return globalLoginResponce_;
}

void VHMetadataStorage::setGlobalLoginResponce(const std::string& text) {
    {
        VHMutexLock lock(mutex_);
        globalLoginResponce_ = text;
    }
    save();
}

}  // namespace vh
