// A string-to-string map that many threads may use at once; the drive keeps
// its rename, delete and temp-folder bookkeeping in such maps.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "lib/VHThreadSafety.h"

namespace vh {

class VHStringMap {
  public:
    // The value, or nothing when the key is absent.
    std::optional<std::string> value(const std::string& key) const VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        auto it = map_.find(key);
        if (it == map_.end()) return std::nullopt;
        return it->second;
    }
    bool contains(const std::string& key) const VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        return map_.count(key) > 0;
    }
    void set(const std::string& key, const std::string& value) VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        map_[key] = value;
    }
    // Removes the key; returns whether it was there.
    bool remove(const std::string& key) VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        return map_.erase(key) > 0;
    }
    // Removes the key and returns its value, as one step.
    std::optional<std::string> take(const std::string& key) VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        auto node = map_.extract(key);
        if (node.empty()) return std::nullopt;
        return std::move(node.mapped());
    }
    void clear() VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        map_.clear();
    }
    std::map<std::string, std::string> snapshot() const VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        return map_;
    }

  private:
    mutable VHMutex mutex_;
    std::map<std::string, std::string> map_ VH_GUARDED_BY(mutex_);
};

}  // namespace vh
