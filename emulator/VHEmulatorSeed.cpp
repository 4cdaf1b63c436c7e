#include "VHEmulatorSeed.h"

#include <vector>

#include "VHEmulatorActions.h"
#include "VHEmulatorProvisioning.h"

namespace vh::emulator {

namespace {

using VHJson = nlohmann::json;

const VHJson& list(const VHJson& object, const char* key) {
    static const VHJson empty = VHJson::array();
    auto it = object.find(key);
    return it != object.end() && it->is_array() ? *it : empty;
}

VHEmulatorResult<bool> provision(VHEmulatorStore& store, const VHJson& seed,
                                 const std::vector<VHEmulatorActions>& actions) {
    VHEmulatorProvisioning provisioning(store);
    if (seed.contains("globalHost") && seed["globalHost"].is_string()) {
        store.db.setMeta("globalHost", seed["globalHost"].get<std::string>());
    }
    for (const VHJson& domain : list(seed, "domains")) {
        auto added = provisioning.addDomain(domain);
        if (!added) return added.failure();
    }
    for (const VHJson& user : list(seed, "users")) {
        auto added = provisioning.addUser(user);
        if (!added) return added.failure();
    }
    const VHJson& shares = list(seed, "shares");
    for (size_t i = 0; i < shares.size(); ++i) {
        auto added = provisioning.addShare(shares[i], actions[i]);
        if (!added) return added.failure();
    }
    store.db.setMeta("seeded", "1");
    return true;
}

bool loadSeed(VHEmulatorStore& store, const VHJson& seed, std::string& error) {
    if (!seed.is_object()) {
        error = "the seed is not a JSON object";
        return false;
    }
    std::vector<VHEmulatorActions> actions;
    for (const VHJson& share : list(seed, "shares")) {
        auto prepared = VHEmulatorActions::prepare(
            share.is_object() ? share.value("actions", VHJson::array()) : VHJson::array(),
            store.blobs);
        if (!prepared) {
            error = prepared.failure().message;
            for (const auto& each : actions) each.discardContents(store.blobs);
            return false;
        }
        actions.push_back(std::move(*prepared));
    }
    auto guard = store.db.lock();
    auto loaded = store.atomically([&] { return provision(store, seed, actions); });
    if (!loaded) {
        error = loaded.failure().message;
        for (const auto& each : actions) each.discardContents(store.blobs);
    }
    return static_cast<bool>(loaded);
}

}  // namespace

bool VHLoadSeed(VHEmulatorStore& store, const VHJson& seed, std::string& error) {
    try {
        return loadSeed(store, seed, error);
    } catch (const std::exception& failure) {
        error = failure.what();  // a value of the wrong type in the seed
        return false;
    }
}

VHJson VHDemoSeed() {
    auto text = [](const char* path, const char* content) {
        return VHJson{{"action", "writeFile"}, {"path", path}, {"text", content}};
    };
    auto pattern = [](const char* path, uint64_t size, uint64_t seed) {
        return VHJson{{"action", "writeFile"}, {"path", path}, {"size", size}, {"seed", seed}};
    };
    auto folder = [](const char* path) {
        return VHJson{{"action", "createFolder"}, {"path", path}};
    };
    const char* demo = "demo@varnholt.test";
    const char* partner = "partner@varnholt.test";
    VHJson shares = VHJson::array();
    shares.push_back(
        {{"shareId", "team-documents"},
         {"name", "Team Documents"},
         {"domain", "d1.varnholt.test"},
         {"owner", partner},
         {"acl", {{{"email", demo}, {"aclType", 1}}}},
         {"actions",
          {text("/readme.txt", "Team documents of the Varnholt demo.\n"), text("/empty.txt", ""),
           text("/Projects/Alpha/notes.txt", "Alpha: first milestone in May.\n"),
           pattern("/Projects/Alpha/diagram.bin", 1 << 20, 1),
           text("/Projects/Alpha/Deep/Deeper/leaf.txt", "A leaf deep in the tree.\n"),
           text("/Projects/Beta/plan.txt", "Beta starts after Alpha.\n"),
           pattern("/Media/photo.bin", 300000, 3), pattern("/Media/video.bin", 50000000, 2)}}});
    shares.push_back({{"shareId", "my-files"},
                      {"name", "My Files"},
                      {"domain", "d1.varnholt.test"},
                      {"owner", demo},
                      {"actions",
                       {text("/welcome.txt", "Welcome to Varnholt.\n"),
                        pattern("/Photos/holiday.bin", 300000, 4), folder("/Documents")}}});
    shares.push_back({{"shareId", "company-handbook"},
                      {"name", "Company Handbook"},
                      {"domain", "d1.varnholt.test"},
                      {"owner", partner},
                      {"acl", {{{"email", demo}, {"aclType", 0}}}},
                      {"actions",
                       {text("/handbook.txt", "Read me first.\n"),
                        text("/Policies/travel.txt", "Travel second class.\n")}}});
    shares.push_back(
        {{"shareId", "partner-archive"},
         {"name", "Partner Archive"},
         {"domain", "d1.varnholt.test"},
         {"owner", partner},
         {"actions",
          {text("/private.txt", "Only for the partner.\n"),
           text("/Shared with demo/shared-notes.txt", "Notes shared with the demo user.\n"),
           text("/Shared with demo/Drafts/draft.txt", "A draft.\n")}}});
    shares.push_back({{"shareId", "shared-with-demo"},
                      {"name", "Shared with demo"},
                      {"domain", "d1.varnholt.test"},
                      {"owner", partner},
                      {"parentShare", "partner-archive"},
                      {"folder", "/Shared with demo"},
                      {"acl", {{{"email", demo}, {"aclType", 1}}}}});
    shares.push_back({{"shareId", "second-domain"},
                      {"name", "Second Domain"},
                      {"domain", "d2.varnholt.test"},
                      {"owner", demo},
                      {"acl", {{{"email", partner}, {"aclType", 1}}}},
                      {"actions",
                       {text("/d2-notes.txt", "Notes in the second domain.\n"),
                        text("/Reports/q1.txt", "First quarter.\n")}}});
    return {{"globalHost", "global.varnholt.test"},
            {"domains",
             {{{"url", "d1.varnholt.test"}, {"name", "Varnholt Demo One"}},
              {{"url", "d2.varnholt.test"}, {"name", "Varnholt Demo Two"}}}},
            {"users",
             {{{"email", demo},
               {"password", "demo"},
               {"name", "Demo User"},
               {"primaryDomain", "d1.varnholt.test"},
               {"domains", VHJson::array({"d1.varnholt.test", "d2.varnholt.test"})}},
              {{"email", partner},
               {"password", "partner"},
               {"name", "Partner User"},
               {"primaryDomain", "d1.varnholt.test"},
               {"domains", VHJson::array({"d1.varnholt.test", "d2.varnholt.test"})}}}},
            {"shares", shares}};
}

}  // namespace vh::emulator
