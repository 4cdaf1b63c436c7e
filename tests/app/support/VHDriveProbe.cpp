#include "support/VHDriveProbe.h"

#include <openssl/sha.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "lib/VHSqlite.h"
#include "support/VHTestHome.h"

namespace vh::test {

std::string VHSha256Hex(const std::string& bytes) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
    std::string hex;
    char two[3];
    for (unsigned char c : digest) {
        std::snprintf(two, sizeof two, "%02x", c);
        hex += two;
    }
    return hex;
}

std::string VHReadWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

nlohmann::json VHTreeItem(const VHEmulatorProcess& emulator, const std::string& shareId,
                          const std::string& path) {
    nlohmann::json tree = emulator.tree(shareId).value_or(nlohmann::json::object());
    for (const nlohmann::json& item : tree.value("items", nlohmann::json::array())) {
        if (item.at("path") == path) return item;
    }
    return nullptr;
}

int64_t VHLastRequestSeq(const VHEmulatorProcess& emulator) {
    nlohmann::json all = emulator.requests();
    return all.empty() ? 0 : all.back().at("seq").get<int64_t>();
}

int64_t VHRecordStatus(const std::string& internalName) {
    VHSqlite files;
    if (!files.open(VHCurrentTestHome() + "/.local/state/Varnholt/files.db",
                    VHSqlite::Mode::ReadOnly)) {
        return -1;
    }
    // The shadow row (5) keeps the service's last state beside the item.
    VHSqliteStatement* row = files.prepare(
        "SELECT status FROM files WHERE internalName = ? AND status != 5", {internalName});
    if (!row || row->step() != VHSqliteStatement::Step::Row) return -1;
    return row->columnInt64(0);
}

}  // namespace vh::test
