#include "store/VHRecordCache.h"

namespace vh {

namespace {

// A folder is loaded whole once this many lookups in it missed; below that a
// query per name costs less than reading every row of a large folder.
constexpr int kMissesBeforeFolderLoad = 32;
// Beyond this many rows the cache starts over rather than grow.
constexpr size_t kMostRecords = 200000;

}  // namespace

bool VHRecordCache::useGeneration(uint64_t generation) {
    uint64_t current = currentGeneration();
    if (cachedGeneration_ != current) {
        byId_.clear();
        folders_.clear();
        misses_.clear();
        cachedGeneration_ = current;
    }
    return generation == current;
}

std::optional<VHFile> VHRecordCache::fileWithId(const std::string& id) {
    VHMutexLock lock(mutex_);
    useGeneration(currentGeneration());
    auto it = byId_.find(id);
    if (it == byId_.end()) return std::nullopt;
    return it->second;
}

VHRecordCache::Child VHRecordCache::child(const std::string& parentId, const std::string& name,
                                          std::optional<VHFile>& found) {
    VHMutexLock lock(mutex_);
    useGeneration(currentGeneration());
    auto folder = folders_.find(parentId);
    if (folder == folders_.end()) return Child::Unknown;
    auto entry = folder->second.find(name);
    if (entry == folder->second.end()) return Child::Absent;
    auto row = byId_.find(entry->second);
    if (row == byId_.end()) return Child::Unknown;
    found = row->second;
    return Child::Found;
}

bool VHRecordCache::shouldLoadFolder(const std::string& parentId) {
    VHMutexLock lock(mutex_);
    useGeneration(currentGeneration());
    return ++misses_[parentId] >= kMissesBeforeFolderLoad;
}

void VHRecordCache::insertLocked(const VHFile& file) {
    if (byId_.size() >= kMostRecords) {
        byId_.clear();
        folders_.clear();
    }
    byId_.insert_or_assign(file.internalName, file);
}

void VHRecordCache::insert(const VHFile& file, uint64_t generation) {
    VHMutexLock lock(mutex_);
    if (useGeneration(generation)) insertLocked(file);
}

void VHRecordCache::insertFolder(const std::string& parentId, const std::vector<VHFile>& rows,
                                 uint64_t generation) {
    VHMutexLock lock(mutex_);
    if (!useGeneration(generation)) return;
    std::unordered_map<std::string, std::string> names;
    for (const VHFile& row : rows) {
        auto [it, added] = names.try_emplace(row.publicName, row.internalName);
        // A name whose deletion is not sent yet may be taken again: the live row answers.
        if (!added && !row.deleted) it->second = row.internalName;
        insertLocked(row);
    }
    folders_.insert_or_assign(parentId, std::move(names));
    misses_.erase(parentId);
}

}  // namespace vh
