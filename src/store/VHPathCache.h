// Resolved drive paths ("/Share/a/b") and the item ids they lead to, so that
// a path lookup does not walk the folder chain each time. Safe from any
// thread.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>

namespace vh {

class VHPathCache {
  public:
    std::optional<std::string> find(const std::string& path) const;
    void insert(const std::string& path, const std::string& id);
    // Drops one path.
    void erasePath(const std::string& path);
    // Drops a path and every path below it.
    void eraseTree(const std::string& path);
    // Drops every path of the item and every path below them: a renamed or
    // moved folder takes its descendants' paths with it.
    void eraseId(const std::string& id);
    void clear();

  private:
    void eraseTreeLocked(const std::string& path);
    void forget(std::map<std::string, std::string>::iterator it);

    mutable std::mutex mutex_;
    std::map<std::string, std::string> idByPath_;  // guarded by mutex_
    std::unordered_map<std::string, std::set<std::string>>
        paths_;  // id -> paths; guarded by mutex_
};

}  // namespace vh
