// Shared pieces of the emulator's tests: a small seed, the login steps a
// client takes, and the requests of the file API built by hand.
#pragma once

#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "emulator/support/VHEmulatorProcess.h"

namespace vh::test {

inline constexpr const char* kGlobal = "global.varnholt.test";
inline constexpr const char* kGateway1 = "clientgateway.d1.varnholt.test";
inline constexpr const char* kFilecache1 = "filecache01.d1.varnholt.test";
inline constexpr const char* kWebclient1 = "webclient.d1.varnholt.test";

// Alice (d1 and d2), Bob (d1) and Carol (known devices only), with the
// shares "team" (Bob's; Alice read-write), "mine" (Alice's), "ro" (Bob's;
// Alice read-only), "archive" (Bob's), "sub" (its folder "/Shared"; Alice
// read-write) and "d2share" (Alice's, in d2). "/big.bin" of "team" has
// 3 MiB of pattern bytes.
nlohmann::json VHCompactSeed();

// What a client holds after the global and the gateway login to d1.
struct VHTestSession {
    std::string email;
    std::string domainToken;
    std::string cookie;
    nlohmann::json managedShares;  // by "ShareId"
};
VHTestSession VHLogIn(const VHEmulatorProcess& emulator, const std::string& email,
                      const std::string& password);
std::string VHAclToken(const VHTestSession& session, const std::string& shareId);

VHEmulatorHeaders VHAuthorization(const std::string& domainToken);
// A journal event of the file API with the given item record.
nlohmann::json VHJournalEvent(int type, const nlohmann::json& virtualFile);
VHEmulatorReply VHSendEvent(const VHEmulatorProcess& emulator, const VHTestSession& session,
                            const std::string& shareId, int type,
                            const nlohmann::json& virtualFile);
VHEmulatorReply VHCatchUp(const VHEmulatorProcess& emulator, const std::string& shareId,
                          const std::string& token, long tickFrom, long take = 10000);
// The internal name of a path in a share's tree; empty when missing.
std::string VHInternalName(const VHEmulatorProcess& emulator, const std::string& shareId,
                           const std::string& path);

std::set<std::string> VHKeys(const nlohmann::json& object);
// A new lower-case GUID without dashes, as the client names its items.
std::string VHTestInternalName();
std::string VHTestBase64(const std::string& bytes);
// Percent-escaped for a URL query or header value.
std::string VHTestEscaped(const std::string& text);
// `size` bytes that differ from position to position.
std::string VHTestBytes(size_t size, uint32_t seed = 1);
std::string VHSha256(const std::string& bytes);

}  // namespace vh::test
