#include "store/VHPathCache.h"

namespace vh {

std::optional<std::string> VHPathCache::find(const std::string& path) const {
    VHMutexLock lock(mutex_);
    auto it = idByPath_.find(path);
    if (it == idByPath_.end()) return std::nullopt;
    return it->second;
}

void VHPathCache::insert(const std::string& path, const std::string& id) {
    VHMutexLock lock(mutex_);
    auto it = idByPath_.find(path);
    if (it != idByPath_.end()) forget(it);
    idByPath_.emplace(path, id);
    paths_[id].insert(path);
}

void VHPathCache::erasePath(const std::string& path) {
    VHMutexLock lock(mutex_);
    auto it = idByPath_.find(path);
    if (it != idByPath_.end()) forget(it);
}

void VHPathCache::eraseTree(const std::string& path) {
    VHMutexLock lock(mutex_);
    eraseTreeLocked(path);
}

void VHPathCache::eraseId(const std::string& id) {
    VHMutexLock lock(mutex_);
    auto it = paths_.find(id);
    if (it == paths_.end()) return;
    std::set<std::string> paths = it->second;
    for (const std::string& path : paths) eraseTreeLocked(path);
}

void VHPathCache::clear() {
    VHMutexLock lock(mutex_);
    idByPath_.clear();
    paths_.clear();
}

void VHPathCache::eraseTreeLocked(const std::string& path) {
    auto it = idByPath_.find(path);
    if (it != idByPath_.end()) forget(it);
    // Paths below `path` sort between "path/" and "path0" ('0' follows '/').
    std::string prefix = path.empty() || path.back() != '/' ? path + "/" : path;
    std::string end = prefix.substr(0, prefix.size() - 1) + "0";
    auto first = idByPath_.lower_bound(prefix);
    while (first != idByPath_.end() && first->first < end) {
        auto next = std::next(first);
        forget(first);
        first = next;
    }
}

void VHPathCache::forget(PathMap::iterator it) {
    auto paths = paths_.find(it->second);
    if (paths != paths_.end()) {
        paths->second.erase(it->first);
        if (paths->second.empty()) paths_.erase(paths);
    }
    idByPath_.erase(it);
}

}  // namespace vh
