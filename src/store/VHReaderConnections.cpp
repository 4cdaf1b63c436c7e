#include "store/VHReaderConnections.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "lib/VHLog.h"

namespace vh {

// This thread's slots, one per registry; each is abandoned when the thread
// ends.
class VHReaderConnections::ThreadSlots {
  public:
    ~ThreadSlots() {
        for (auto& entry : mine_) entry.second->abandoned.store(true, std::memory_order_release);
    }
    std::shared_ptr<Slot>& of(VHReaderConnections* owner) {
        for (auto& [known, slot] : mine_) {
            if (known == owner) return slot;
        }
        return mine_.emplace_back(owner, nullptr).second;
    }

  private:
    std::vector<std::pair<VHReaderConnections*, std::shared_ptr<Slot>>> mine_;
};

void VHReaderConnections::open(const std::string& path) {
    VHMutexLock lock(mutex_);
    ++generation_;
    path_ = std::make_shared<const std::string>(path);
}

void VHReaderConnections::close() {
    std::set<std::shared_ptr<Slot>> held;
    {
        VHMutexLock lock(mutex_);
        ++generation_;
        path_.reset();
        held = slots_;
    }
    for (const std::shared_ptr<Slot>& slot : held) {
        VHMutexLock lock(slot->mutex);
        slot->connection.close();
    }
}

size_t VHReaderConnections::slotCount() const {
    VHMutexLock lock(mutex_);
    return std::count_if(slots_.begin(), slots_.end(), [](const std::shared_ptr<Slot>& slot) {
        return !slot->abandoned.load(std::memory_order_acquire);
    });
}

std::shared_ptr<VHReaderConnections::Slot> VHReaderConnections::slotOfThisThread() {
    thread_local ThreadSlots mine;
    std::shared_ptr<Slot>& slot = mine.of(this);
    if (!slot) {
        slot = std::make_shared<Slot>();
        VHMutexLock lock(mutex_);
        std::erase_if(slots_, [](const std::shared_ptr<Slot>& held) {
            return held->abandoned.load(std::memory_order_acquire);
        });
        slots_.insert(slot);
    }
    return slot;
}

VHReaderConnections::Target VHReaderConnections::target() const {
    VHMutexLock lock(mutex_);
    return {generation_, path_};
}

VHSqlite* VHReaderConnections::connect(Slot& slot, const Target& target) {
    if (slot.generation != target.generation) {
        slot.connection.close();
        if (!target.path || slot.connection.open(*target.path, VHSqlite::Mode::ReadOnly)) {
            slot.generation = target.generation;
        } else {
            VHLog(kLogDatabase, "Warning! Cannot open a reading connection to %@: %@", *target.path,
                  slot.connection.lastError());
        }
    }
    return slot.connection.isOpen() ? &slot.connection : nullptr;
}

}  // namespace vh
