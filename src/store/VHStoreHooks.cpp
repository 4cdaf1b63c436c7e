#include "store/VHStoreHooks.h"

#include <atomic>

namespace vh {

namespace {

class NoCache final : public VHCacheFiles {
    std::string shareCachePath(const std::string&) override { return ""; }
    void createMissingExAttrsForShare(const ManagedShare&) override {}
    void deleteExAttrsForShare(const std::string&) override {}
    void createCacheFile(const VHFile&) override {}
    void deleteFileCache(const VHFile&) override {}
    void deleteFileDownload(const VHFile&) override {}
    bool hasCompleteCache(const VHFile&) override { return false; }
    void exchangeFileCaches(const VHFile&, const VHFile&) override {}
    void moveFileCache(const std::string&, const std::string&, const std::string&,
                       const std::string&) override {}
};

class NoUploads final : public VHUploadHooks {
    void cancelUpload(const VHFile&) override {}
    void uploadsAdded() override {}
    bool upload(const VHFile&) override { return false; }
    bool existsOperationOnFileWithInternalName(const std::string&) override { return false; }
    bool uploadUnconfirmed(const VHFile&) override { return false; }
    void confirmUpload(const VHFile&) override {}
};

class NoOpenFiles final : public VHOpenFilesHooks {
    void fileWasModified(const VHFile&) override {}
    void exchangeFileId(const std::string&, const std::string&) override {}
};

class NoApp final : public VHAppHooks {
    std::string username() override { return ""; }
    void globalLoginResponceLoaded(const GlobalLoginResponce&) override {}
    void refreshFinderFolders(const std::vector<std::string>&) override {}
    void refreshFinderRootFolder() override {}
    void refreshFileInFinder(const VHFile&) override {}
};

template <typename Interface, typename Fallback>
struct Slot {
    Interface& get() {
        Interface* p = current.load(std::memory_order_acquire);
        return p ? *p : fallback;
    }
    void set(Interface* p) { current.store(p, std::memory_order_release); }
    std::atomic<Interface*> current{nullptr};
    Fallback fallback;
};

Slot<VHCacheFiles, NoCache> gCache;
Slot<VHUploadHooks, NoUploads> gUploads;
Slot<VHOpenFilesHooks, NoOpenFiles> gOpenFiles;
Slot<VHAppHooks, NoApp> gApp;

}  // namespace

VHCacheFiles& VHStoreHooks::cache() {
    return gCache.get();
}
VHUploadHooks& VHStoreHooks::uploads() {
    return gUploads.get();
}
VHOpenFilesHooks& VHStoreHooks::openFiles() {
    return gOpenFiles.get();
}
VHAppHooks& VHStoreHooks::app() {
    return gApp.get();
}
void VHStoreHooks::setCache(VHCacheFiles* cache) {
    gCache.set(cache);
}
void VHStoreHooks::setUploads(VHUploadHooks* uploads) {
    gUploads.set(uploads);
}
void VHStoreHooks::setOpenFiles(VHOpenFilesHooks* openFiles) {
    gOpenFiles.set(openFiles);
}
void VHStoreHooks::setApp(VHAppHooks* app) {
    gApp.set(app);
}

}  // namespace vh
