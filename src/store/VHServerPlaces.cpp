#include "store/VHServerPlaces.h"

namespace vh {

void VHServerPlaces::noteLeaving(const std::string& id, const Place& place) {
    VHMutexLock lock(mutex_);
    places_.emplace(id, place);
}

void VHServerPlaces::moved(const std::string& id, const Place& place) {
    VHMutexLock lock(mutex_);
    places_[id] = place;
}

void VHServerPlaces::forget(const std::string& id) {
    VHMutexLock lock(mutex_);
    places_.erase(id);
}

std::optional<VHServerPlaces::Place> VHServerPlaces::find(const std::string& id) const {
    VHMutexLock lock(mutex_);
    auto it = places_.find(id);
    if (it == places_.end()) return std::nullopt;
    return it->second;
}

std::vector<std::string> VHServerPlaces::itemsAt(const Place& place) const {
    VHMutexLock lock(mutex_);
    std::vector<std::string> found;
    for (const auto& [id, at] : places_) {
        if (at == place) found.push_back(id);
    }
    return found;
}

}  // namespace vh
