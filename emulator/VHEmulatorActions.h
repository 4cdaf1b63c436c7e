// A batch of changes to one share, addressed by path, as another device
// makes them: the admin API's "act as a device" and the seed's file lists.
//
// Contents are written to new blobs by prepare() without any lock; apply()
// then runs every action in order under the database lock, inside the
// caller's transaction. Missing parent folders are created on the way.
//
// Actions: {"action": "createFolder", "path"}, {"action": "writeFile",
// "path", and "text", "base64" or "size" with an optional "seed"},
// {"action": "move", "path", "to"}, {"action": "delete", "path"},
// {"action": "lock" | "unlock", "path"}.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHEmulatorActions {
  public:
    static VHEmulatorResult<VHEmulatorActions> prepare(const nlohmann::json& actions,
                                                       VHEmulatorBlobs& blobs);
    // One result per action: "action", "path", "internalName", "tick".
    VHEmulatorResult<nlohmann::json> apply(VHEmulatorStore& store, const VHShareView& view,
                                           const VHChangeOrigin& origin) const;
    // Removes the blobs prepare() wrote; for a batch that was not applied.
    void discardContents(VHEmulatorBlobs& blobs) const;

  private:
    struct Action {
        std::string kind;
        std::vector<std::string> path;
        std::vector<std::string> to;
        VHContentVersion content;
    };
    static VHEmulatorResult<Action> parse(const nlohmann::json& action, VHEmulatorBlobs& blobs);
    static VHEmulatorResult<VHContentVersion> writeContent(const nlohmann::json& action,
                                                           VHEmulatorBlobs& blobs);
    VHEmulatorResult<VHEmulatorItem> applyOne(VHEmulatorStore& store, const VHShareView& view,
                                              const Action& action,
                                              const VHChangeOrigin& origin) const;
    VHEmulatorResult<std::string> ensureFolders(VHEmulatorStore& store, const VHShareView& view,
                                                const std::vector<std::string>& path, size_t count,
                                                const VHChangeOrigin& origin) const;

    std::vector<Action> actions_;
};

}  // namespace vh::emulator
