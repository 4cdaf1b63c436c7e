// What applying server items did, for the hooks that follow the commit;
// included only by VHDatabase's own sources.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "store/VHDatabase.h"

namespace vh {

struct VHDatabase::ServerEffects {
    std::set<std::string> touched;  // items whose cached paths go
    std::set<std::string> folders;  // to refresh in the file manager
    std::set<std::string> deletedFolders;
    std::vector<VHFile> confirmed;                      // uploads the journal confirmed
    std::vector<VHFile> settled;  // files that had a change of their own and now have none
    std::vector<std::pair<VHFile, uint64_t>> outdated;  // local row, server tick
    std::vector<VHFile> deleted;
    std::set<std::tuple<std::string, std::string, std::string>> leftNames;  // parent, name, id
    // The lowest tick of an item left for a later catch-up: the share's
    // journal position must stay below it.
    std::optional<uint64_t> heldBackTick;
};

}  // namespace vh
