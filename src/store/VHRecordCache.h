// Live rows (status other than shadow) read by lookups, kept while the store
// writes nothing. Every statement of the write connection advances the
// generation once it has run; a record read under an older generation is
// never kept, and the first access under a newer one empties the cache. A
// folder asked for often within one generation is loaded whole, so that a
// stream of lookups in a large folder costs one query instead of one per
// name.
//
// Safe from any thread; its lock is a leaf.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"

namespace vh {

class VHRecordCache {
  public:
    enum class Child { Found, Absent, Unknown };

    // What the write connection advances (VHStatementJournal::generation).
    std::atomic<uint64_t>& generation() { return generation_; }
    uint64_t currentGeneration() const { return generation_.load(std::memory_order_acquire); }

    std::optional<VHFile> fileWithId(const std::string& id) VH_EXCLUDES(mutex_);
    // The child `name` of a folder loaded whole, the live row before a
    // deleted one; Unknown when the folder is not loaded.
    Child child(const std::string& parentId, const std::string& name, std::optional<VHFile>& found)
        VH_EXCLUDES(mutex_);
    // Counts a lookup in a folder that is not loaded; true when it should be.
    bool shouldLoadFolder(const std::string& parentId) VH_EXCLUDES(mutex_);
    // A row read under `generation`.
    void insert(const VHFile& file, uint64_t generation) VH_EXCLUDES(mutex_);
    // Every live and deleted row of a folder, read under `generation`.
    void insertFolder(const std::string& parentId, const std::vector<VHFile>& rows,
                      uint64_t generation) VH_EXCLUDES(mutex_);
    // Forgets everything, also what reads under way would still add.
    void clear() { generation_.fetch_add(1, std::memory_order_acq_rel); }

  private:
    // Empties the cache when the generation moved on; false when
    // `generation` is no longer the current one.
    bool useGeneration(uint64_t generation) VH_REQUIRES(mutex_);
    void insertLocked(const VHFile& file) VH_REQUIRES(mutex_);

    std::atomic<uint64_t> generation_{0};
    mutable VHMutex mutex_;
    uint64_t cachedGeneration_ VH_GUARDED_BY(mutex_) = 0;
    std::unordered_map<std::string, VHFile> byId_ VH_GUARDED_BY(mutex_);
    // Folders loaded whole: parent id -> name -> id.
    std::unordered_map<std::string, std::unordered_map<std::string, std::string>> folders_
        VH_GUARDED_BY(mutex_);
    std::unordered_map<std::string, int> misses_ VH_GUARDED_BY(mutex_);
};

}  // namespace vh
