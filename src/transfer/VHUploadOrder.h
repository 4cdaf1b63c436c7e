// Which pending change may go to the service now.
//
// The service checks every change against its own state, so a change that
// depends on another one waits until that one is through: an item whose
// folder the service does not have yet, a rename or create to a name that
// another item with a pending change still holds on the service, a folder
// deletion while items of the folder still have changes to send (a file moved
// out first would otherwise go with the folder). Names swapped in a cycle
// (a -> c, b -> a, c -> b) would wait for each other for ever: one item of the
// cycle goes to an interim name first, which frees its old name.
//
// Reads the store only; any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "store/VHFile.h"
#include "store/VHServerPlaces.h"

namespace vh {

class VHUploadOrder {
  public:
    enum class Kind { Go, Wait, Interim };
    struct Verdict {
        Kind kind = Kind::Go;
        std::string interimName;  // for Interim: the name to send first
    };

    // `hasOperation`: whether an upload operation of the item is queued or runs.
    explicit VHUploadOrder(std::function<bool(const std::string& internalName)> hasOperation);

    Verdict verdict(const VHFile& file) const;

    // The stopgap name of an item on the service while names are swapped.
    static std::string interimName(const VHFile& file);

  private:
    using Place = VHServerPlaces::Place;

    bool isPending(const std::string& id) const;
    bool parentIsNotOnService(const VHFile& file) const;
    // Where the service has the item, as far as the store knows.
    std::optional<Place> serverPlace(const std::string& id) const;
    // Another item that holds `place` on the service.
    std::optional<std::string> holderOf(const Place& place, const std::string& except) const;
    // Following what each holder waits for leads back to `file`: the item of
    // the cycle with the least id (this one or another) goes first.
    std::optional<bool> cycleLedBy(const VHFile& file, std::string holder) const;

    std::function<bool(const std::string&)> hasOperation_;
};

}  // namespace vh
