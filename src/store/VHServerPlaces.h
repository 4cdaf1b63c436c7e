// Where the service has items that were renamed or moved locally and whose
// rename it has not taken yet: their folder and name on the service. A plain
// rename keeps no shadow row (a shadow would let a new file of the old name
// take the item over), so without this the upload queue could not tell which
// item still holds a name on the service. Kept in memory: after a restart a
// conflict it would have avoided is refused by the service and retried.
//
// Safe from any thread; its lock is a leaf.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lib/VHThreadSafety.h"

namespace vh {

class VHServerPlaces {
  public:
    using Place = std::pair<std::string, std::string>;  // parent id, name

    // The item is about to leave `place`, where the service has it, unless an
    // earlier rename not yet sent already noted where that is.
    void noteLeaving(const std::string& id, const Place& place) VH_EXCLUDES(mutex_);
    // The service took a rename to `place` that is not the item's last.
    void moved(const std::string& id, const Place& place) VH_EXCLUDES(mutex_);
    // The service has the item where the store has it.
    void forget(const std::string& id) VH_EXCLUDES(mutex_);
    std::optional<Place> find(const std::string& id) const VH_EXCLUDES(mutex_);
    // The items noted at `place`.
    std::vector<std::string> itemsAt(const Place& place) const VH_EXCLUDES(mutex_);

  private:
    mutable VHMutex mutex_;
    std::map<std::string, Place> places_ VH_GUARDED_BY(mutex_);
};

}  // namespace vh
