#include "VHEmulatorTestSupport.h"

#include <curl/curl.h>
#include <openssl/evp.h>

#include <random>

namespace vh::test {

using nlohmann::json;

json VHCompactSeed() {
    auto write = [](const char* path, const char* text) {
        return json{{"action", "writeFile"}, {"path", path}, {"text", text}};
    };
    return {{"globalHost", kGlobal},
            {"domains", {{{"url", "d1.varnholt.test"}}, {{"url", "d2.varnholt.test"}}}},
            {"users",
             {{{"email", "alice@varnholt.test"},
               {"password", "alice-pw"},
               {"primaryDomain", "d1.varnholt.test"},
               {"domains", json::array({"d1.varnholt.test", "d2.varnholt.test"})}},
              {{"email", "bob@varnholt.test"},
               {"password", "bob-pw"},
               {"primaryDomain", "d1.varnholt.test"}},
              {{"email", "carol@varnholt.test"},
               {"password", "carol-pw"},
               {"primaryDomain", "d1.varnholt.test"},
               {"requireKnownDevices", true},
               {"devices", {{{"deviceId", "carol-laptop"}}}}}}},
            {"shares",
             {{{"shareId", "team"},
               {"name", "Team"},
               {"domain", "d1.varnholt.test"},
               {"owner", "bob@varnholt.test"},
               {"acl", {{{"email", "alice@varnholt.test"}, {"aclType", 1}}}},
               {"actions",
                {write("/readme.txt", "hello"),
                 write("/docs/a.txt", "alpha"),
                 write("/docs/sub/b.txt", "beta"),
                 {{"action", "writeFile"}, {"path", "/big.bin"}, {"size", 3 << 20}, {"seed", 7}}}}},
              {{"shareId", "mine"},
               {"name", "Mine"},
               {"domain", "d1.varnholt.test"},
               {"owner", "alice@varnholt.test"},
               {"actions", {write("/x.txt", "x")}}},
              {{"shareId", "ro"},
               {"name", "Read Only"},
               {"domain", "d1.varnholt.test"},
               {"owner", "bob@varnholt.test"},
               {"acl", {{{"email", "alice@varnholt.test"}, {"aclType", 0}}}},
               {"actions", {write("/r.txt", "read me")}}},
              {{"shareId", "archive"},
               {"name", "Archive"},
               {"domain", "d1.varnholt.test"},
               {"owner", "bob@varnholt.test"},
               {"actions",
                {write("/Shared/s1.txt", "one"), write("/Shared/deeper/s2.txt", "two"),
                 write("/outside.txt", "not shared")}}},
              {{"shareId", "sub"},
               {"name", "Shared"},
               {"domain", "d1.varnholt.test"},
               {"owner", "bob@varnholt.test"},
               {"parentShare", "archive"},
               {"folder", "/Shared"},
               {"acl", {{{"email", "alice@varnholt.test"}, {"aclType", 1}}}}},
              {{"shareId", "d2share"},
               {"name", "Second"},
               {"domain", "d2.varnholt.test"},
               {"owner", "alice@varnholt.test"},
               {"actions", {write("/d2.txt", "two")}}}}}};
}

VHTestSession VHLogIn(const VHEmulatorProcess& emulator, const std::string& email,
                      const std::string& password) {
    VHTestSession session{email, "", "", json::object()};
    json global = emulator
                      .request("GET", kGlobal, "/GlobalLogin.aspx",
                               {{"useremail", email},
                                {"password2", VHTestBase64(password)},
                                {"deviceid", "test-device"}})
                      .json();
    if (global.value("ErrorCode", "") != "U100") return session;
    session.domainToken = global["PrimaryUserDomain"]["UserDomainToken"];
    json gateway = emulator
                       .request("GET", kGateway1,
                                "/ClientLogin.aspx?userEmail=" + email +
                                    "&token=" + session.domainToken + "&API=1")
                       .json();
    if (!gateway.is_object()) return session;
    session.cookie = gateway.value("Cookie", "");
    for (const json& share : gateway["ManagedShares"]) {
        session.managedShares[share["ShareId"].get<std::string>()] = share;
    }
    return session;
}

std::string VHAclToken(const VHTestSession& session, const std::string& shareId) {
    if (!session.managedShares.contains(shareId)) return "";
    return session.managedShares[shareId]["ShareAcl"]["AclToken"];
}

VHEmulatorHeaders VHAuthorization(const std::string& domainToken) {
    return {{"Authorization", "DomainToken " + domainToken}, {"Content-Type", "application/json"}};
}

json VHJournalEvent(int type, const json& virtualFile) {
    return {{"TransmitId", VHTestInternalName()},
            {"ClientJournalEventType", type},
            {"VhVirtualFile", virtualFile},
            {"DeviceId", "test-device"},
            {"ShareTick", 0},
            {"TransmitCounter", 0},
            {"CreateTick", 0}};
}

VHEmulatorReply VHSendEvent(const VHEmulatorProcess& emulator, const VHTestSession& session,
                            const std::string& shareId, int type, const json& virtualFile) {
    std::string path = "/api/shares/" + shareId + "/files";
    std::string method = type == 0 ? "POST" : type == 1 ? "DELETE" : "PUT";
    if (type != 0) path += "/" + virtualFile.value("InternalName", std::string());
    return emulator.request(method, kFilecache1, path, VHAuthorization(session.domainToken),
                            VHJournalEvent(type, virtualFile).dump());
}

VHEmulatorReply VHCatchUp(const VHEmulatorProcess& emulator, const std::string& shareId,
                          const std::string& token, long tickFrom, long take) {
    return emulator.request("POST", kGateway1, "/CatchUp7.aspx",
                            {{"share", shareId},
                             {"token", VHTestEscaped(token)},
                             {"vshareId", ""},
                             {"tickfrom", std::to_string(tickFrom)},
                             {"tickstart", std::to_string(tickFrom)},
                             {"ticktake", std::to_string(take)}});
}

std::string VHInternalName(const VHEmulatorProcess& emulator, const std::string& shareId,
                           const std::string& path) {
    auto tree = emulator.tree(shareId);
    if (!tree) return "";
    for (const json& item : (*tree)["items"]) {
        if (item["path"] == path) return item["internalName"];
    }
    return "";
}

std::set<std::string> VHKeys(const json& object) {
    std::set<std::string> keys;
    for (auto it = object.begin(); object.is_object() && it != object.end(); ++it) {
        keys.insert(it.key());
    }
    return keys;
}

std::string VHTestInternalName() {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    static const char* hex = "0123456789abcdef";
    std::string id;
    for (int i = 0; i < 32; ++i) id += hex[generator() % 16];
    return id;
}

std::string VHTestBase64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                 reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<int>(bytes.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

std::string VHTestEscaped(const std::string& text) {
    char* escaped = curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size()));
    std::string result = escaped ? escaped : "";
    curl_free(escaped);
    return result;
}

std::string VHTestBytes(size_t size, uint32_t seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator() & 0xff);
    return bytes;
}

std::string VHSha256(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    static const char* hex = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += hex[digest[i] >> 4];
        text += hex[digest[i] & 15];
    }
    return text;
}

}  // namespace vh::test
