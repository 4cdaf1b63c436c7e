// Resolved drive paths ("/Share/a/b") and the item ids they lead to, so that
// a path lookup does not walk the folder chain each time. Safe from any
// thread; its lock is a leaf (nothing is called while it is held).
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>

#include "lib/VHThreadSafety.h"

namespace vh {

class VHPathCache {
  public:
    std::optional<std::string> find(const std::string& path) const VH_EXCLUDES(mutex_);
    void insert(const std::string& path, const std::string& id) VH_EXCLUDES(mutex_);
    // Drops one path.
    void erasePath(const std::string& path) VH_EXCLUDES(mutex_);
    // Drops a path and every path below it.
    void eraseTree(const std::string& path) VH_EXCLUDES(mutex_);
    // Drops every path of the item and every path below them: a renamed or
    // moved folder takes its descendants' paths with it.
    void eraseId(const std::string& id) VH_EXCLUDES(mutex_);
    void clear() VH_EXCLUDES(mutex_);

  private:
    using PathMap = std::map<std::string, std::string>;

    void eraseTreeLocked(const std::string& path) VH_REQUIRES(mutex_);
    void forget(PathMap::iterator it) VH_REQUIRES(mutex_);

    mutable VHMutex mutex_;
    PathMap idByPath_ VH_GUARDED_BY(mutex_);
    std::unordered_map<std::string, std::set<std::string>> paths_
        VH_GUARDED_BY(mutex_);  // id -> its paths
};

}  // namespace vh
