// Drive paths of VHDatabase: path lookup through the path caches, and the
// full paths of items for the file manager and the logs.
#include <execinfo.h>

#include <set>

#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabaseAccess.h"

namespace vh {

namespace {

std::string callStack() {
    void* frames[32];
    int count = backtrace(frames, 32);
    char** symbols = backtrace_symbols(frames, count);
    std::string text;
    for (int i = 1; symbols && i < count; ++i) text += std::string("\n") + symbols[i];
    free(symbols);
    return text;
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : "/") + name;
    return text;
}

}  // namespace

// An item and its ancestors (innermost first) as far as their rows lead, and
// the parent id where the walk ended.
struct VHDatabase::Chain {
    std::vector<VHFile> items;
    std::string topParentId;
};

VHDatabase::Chain VHDatabase::chainOf(const VHFile& file) {
    return read([&](VHFilesTable& t) {
        Chain chain{{file}, ""};
        std::set<std::string> visited{file.internalName};
        while (true) {
            const VHFile& current = chain.items.back();
            std::optional<VHFile> parent = t.fileWithId(current.parentId, false);
            if (!parent) {
                chain.topParentId = current.parentId;
                break;
            }
            if (!visited.insert(parent->internalName).second) {
                VHLog(kLogDatabase, "Infinite recursivity with files %@ and %@, ",
                      current.internalName, parent->internalName);
                break;
            }
            chain.items.push_back(std::move(*parent));
        }
        return chain;
    });
}

// ---- Path lookup ----------------------------------------------------------------

std::optional<VHFile> VHDatabase::fileWithPath(const std::string& rawPath, bool shadow) {
    std::string path = withoutTrailingSlash(rawPath);
    std::vector<std::string> components = VHPathComponents(path);
    if (components.size() <= 2 || components[0] != "/") return std::nullopt;
    VHPathCache& cache = shadow ? shadowCache_ : liveCache_;
    if (auto id = cache.find(path)) {
        // A deleted item may have handed its name on to a live one.
        auto file = fileWithId(*id, shadow);
        if (file && !file->deleted) return file;
        cache.erasePath(path);
    }
    if (auto parentId = cache.find(VHDeletingLastPathComponent(path))) {
        if (auto file = fileWithParentId(*parentId, components.back(), shadow)) {
            cache.insert(path, file->internalName);
            return file;
        }
    }
    std::optional<ManagedShare> share = storage_.shareWithFilePath(path);
    if (!share) {
        VHLog(kLogDrive, "==> no share is not found %@ %@", path, callStack());
        return std::nullopt;
    }
    std::optional<VHFile> file = resolveInShare(*share, components, shadow);
    if (!file && !VHIsPathIgnored(path)) {
        cache.erasePath(path);
        VHLog(kLogDatabase, "file not found %@", path);
    }
    return file;
}

std::optional<VHFile> VHDatabase::resolveInShare(const ManagedShare& share,
                                                 const std::vector<std::string>& components,
                                                 bool shadow) {
    for (const std::string& root : {share.shareId(), share.internalName()}) {
        if (root.empty()) continue;
        if (components.size() > 3 || shadow) {
            if (std::optional<VHFile> file = resolvePath(root, components, shadow)) return file;
            continue;
        }
        // An item at the share's top goes through the record cache.
        if (std::optional<VHFile> file = fileWithParentId(root, components.back(), false)) {
            liveCache_.insert("/" + components[1] + "/" + components[2], file->internalName);
            return file;
        }
    }
    return std::nullopt;
}

std::optional<VHFile> VHDatabase::resolvePath(const std::string& startId,
                                              const std::vector<std::string>& components,
                                              bool shadow) {
    std::vector<std::pair<std::string, std::string>> resolved;  // path prefix, id
    std::optional<VHFile> file = read([&](VHFilesTable& t) -> std::optional<VHFile> {
        std::string prefix = "/" + components[1];
        std::string id = startId;
        for (size_t i = 2; i < components.size(); ++i) {
            std::optional<std::string> child = t.idOfFileNamed(components[i], id, shadow);
            if (!child) return std::nullopt;
            id = *child;
            prefix += "/" + components[i];
            resolved.emplace_back(prefix, id);
        }
        return t.fileWithId(id, shadow);
    });
    VHPathCache& cache = shadow ? shadowCache_ : liveCache_;
    for (const auto& [prefix, id] : resolved) cache.insert(prefix, id);
    return file;
}

// ---- Path caches ------------------------------------------------------------------

std::optional<std::string> VHDatabase::cachedItemWithPath(const std::string& path, bool shadow) {
    return (shadow ? shadowCache_ : liveCache_).find(withoutTrailingSlash(path));
}

void VHDatabase::cacheItem(const std::string& id, const std::string& path, bool shadow) {
    (shadow ? shadowCache_ : liveCache_).insert(withoutTrailingSlash(path), id);
}

void VHDatabase::clearCacheForPathSingle(const std::string& path) {
    liveCache_.erasePath(withoutTrailingSlash(path));
    shadowCache_.erasePath(withoutTrailingSlash(path));
}

void VHDatabase::clearCacheForPath(const std::string& path) {
    liveCache_.eraseTree(withoutTrailingSlash(path));
    shadowCache_.eraseTree(withoutTrailingSlash(path));
}

void VHDatabase::clearCacheForId(const std::string& id) {
    liveCache_.eraseId(id);
    shadowCache_.eraseId(id);
}

void VHDatabase::clearAllPathCaches() {
    liveCache_.clear();
    shadowCache_.clear();
    records_.clear();
}

// ---- Full paths -------------------------------------------------------------------

std::string VHDatabase::fullFilePath(const VHFile& file) {
    if (file.internalName.empty()) return "";
    std::optional<ManagedShare> share = storage_.shareWithId(file.shareId);
    if (share && share->isSubfolderShare()) {
        if (file.parentShareId.empty()) return "";
        share = storage_.shareWithId(file.parentShareId);
    }
    if (!share) return "";
    std::vector<std::string> names;
    for (const VHFile& item : chainOf(file).items) {
        names.insert(names.begin(), item.publicName);
        if (item.parentId == share->shareId()) break;
    }
    return VHFormat("/%@/%@", share->displayName(), joined(names));
}

std::vector<std::string> VHDatabase::allFilePathsFromSubshare(const VHFile& file) {
    Chain chain = chainOf(file);
    std::vector<std::string> paths;
    std::vector<std::string> names;  // below the current ancestor, outermost first
    for (const VHFile& item : chain.items) {
        std::optional<ManagedShare> share = storage_.shareWithInternalName(item.internalName);
        if (!item.isFile && share && share->isSubfolderShare()) {
            paths.push_back(names.empty()
                                ? "/" + share->displayName()
                                : VHFormat("/%@/%@", share->displayName(), joined(names)));
        }
        names.insert(names.begin(), item.publicName);
    }
    std::optional<ManagedShare> top = storage_.shareWithId(chain.topParentId);
    if (top && top->isSubfolderShare()) {
        paths.push_back(VHFormat("/%@/%@", top->displayName(), joined(names)));
    }
    return paths;
}

std::string VHDatabase::fullFilePathFromSubShare(const VHFile& file) {
    std::vector<std::string> paths = allFilePathsFromSubshare(file);
    return paths.empty() ? "" : paths.front();
}

std::vector<std::string> VHDatabase::fullFilePathsForFile(const VHFile& file) {
    std::vector<std::string> paths;
    std::string main = fullFilePath(file);
    if (!main.empty()) paths.push_back(main);
    for (std::string& path : allFilePathsFromSubshare(file)) {
        if (path != main) paths.push_back(std::move(path));
    }
    return paths;
}

std::optional<ManagedShare> VHDatabase::getSubshareForFile(const VHFile& file) {
    Chain chain = chainOf(file);
    for (const VHFile& item : chain.items) {
        if (item.isFile) continue;
        if (auto share = storage_.shareWithInternalName(item.internalName)) return share;
    }
    std::optional<ManagedShare> top = storage_.shareWithId(chain.topParentId);
    if (top && top->isSubfolderShare()) return top;
    return std::nullopt;
}

std::vector<std::string> VHDatabase::drivePathsOfFolders(const std::set<std::string>& folderIds) {
    std::set<std::string> paths;
    for (const std::string& id : folderIds) {
        std::optional<ManagedShare> share = storage_.shareWithId(id);
        if (!share) share = storage_.shareWithInternalName(id);
        if (share) {
            paths.insert("/" + share->displayName());
        } else if (std::optional<VHFile> folder = fileWithId(id)) {
            std::string path = fullFilePath(*folder);
            if (!path.empty()) paths.insert(path);
        }
    }
    return {paths.begin(), paths.end()};
}

}  // namespace vh
