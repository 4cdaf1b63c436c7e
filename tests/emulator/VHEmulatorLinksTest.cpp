// Public links and the web client's direct links against the real emulator.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "VHEmulatorDefaults.h"
#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

// Zero-padded AES-256-CBC without cipher padding, as the client encrypts.
std::string encryptDirectLink(std::string text) {
    text.resize((text.size() + 15) / 16 * 16, '\0');
    std::string out(text.size(), '\0');
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int length = 0, tail = 0;
    auto key = reinterpret_cast<const unsigned char*>(emulator::kDirectLinkKey.data());
    auto iv = reinterpret_cast<const unsigned char*>(emulator::kDirectLinkIV.data());
    EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_EncryptUpdate(context, reinterpret_cast<unsigned char*>(out.data()), &length,
                      reinterpret_cast<const unsigned char*>(text.data()),
                      static_cast<int>(text.size()));
    EVP_EncryptFinal_ex(context, reinterpret_cast<unsigned char*>(out.data()) + length, &tail);
    EVP_CIPHER_CTX_free(context);
    return VHTestBase64(out);
}

class EmulatorLinks : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator.start({VHCompactSeed(), ""}));
        alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
        ASSERT_FALSE(alice.domainToken.empty());
    }

    VHEmulatorReply createDirectLink(const std::string& token, const std::string& password,
                                     const std::string& page) {
        json command = {{"Token", token},
                        {"UserId", alice.email},
                        {"Method", "CreateDirectLink"},
                        {"DeviceId", "test-device"},
                        {"Ip", ""}};
        json shareToken = {{"A", alice.email}, {"B", password}, {"C", page}, {"D", "1"}};
        json request = {
            {"LinkType", 2}, {"MinutesExpire", 1}, {"MaxUse", 1}, {"JsonData", shareToken.dump()}};
        return emulator.request("GET", kGateway1, "/clientapi.aspx",
                                {{"command", command.dump()}, {"request", request.dump()}});
    }

    VHEmulatorReply openWebClient(const std::string& linkId, const std::string& token) {
        json url = {{"DomainToken", token}, {"DirectLinkId", linkId}, {"UserId", alice.email}};
        return emulator.request(
            "GET", kWebclient1,
            "/default.aspx?sas=" + VHTestEscaped(encryptDirectLink(url.dump())));
    }

    VHEmulatorProcess emulator;
    VHTestSession alice;
};

TEST_F(EmulatorLinks, PublicLinkLeadsToTheFile) {
    json request = {
        {"ShareId", "team"}, {"InternalName", VHInternalName(emulator, "team", "/readme.txt")},
        {"DaysToExpire", 7}, {"MaxUse", 0},
        {"Message", ""},     {"EnablePassword", false},
        {"Password", ""}};
    VHEmulatorReply created = emulator.request("POST", kGateway1, "/api/publiclinks",
                                               VHAuthorization(alice.domainToken), request.dump());
    ASSERT_EQ(created.status, 201) << created.body;
    std::string link = created.json()["Data"]["FullLink"];
    std::string prefix = "https://webclient.d1.varnholt.test";
    ASSERT_EQ(link.rfind(prefix, 0), 0u);
    EXPECT_EQ(emulator.request("GET", kWebclient1, link.substr(prefix.size())).body, "hello");

    EXPECT_EQ(emulator.request("POST", kGateway1, "/api/publiclinks", {}, request.dump()).status,
              401);
    request["ShareId"] = "archive";
    EXPECT_EQ(emulator
                  .request("POST", kGateway1, "/api/publiclinks",
                           VHAuthorization(alice.domainToken), request.dump())
                  .status,
              403);
}

TEST_F(EmulatorLinks, DirectLinkSignsTheUserInOnce) {
    VHEmulatorReply created = createDirectLink(alice.domainToken, "alice-pw", "*LOGIN");
    ASSERT_EQ(created.status, 200) << created.body;
    json answer = created.json();
    EXPECT_EQ(VHKeys(answer), (std::set<std::string>{"ResponceMessage", "responce", "LinkId"}));
    EXPECT_EQ(answer["ResponceMessage"], "101:Ok");
    EXPECT_EQ(answer["responce"], true);
    std::string linkId = answer["LinkId"];

    VHEmulatorReply page = openWebClient(linkId, alice.domainToken);
    EXPECT_EQ(page.status, 200);
    EXPECT_NE(page.body.find("Signed in as alice@varnholt.test"), std::string::npos);
    EXPECT_NE(page.body.find("Page: *LOGIN"), std::string::npos);
    EXPECT_EQ(openWebClient(linkId, alice.domainToken).status, 403);  // used up

    std::string other = createDirectLink(alice.domainToken, "alice-pw", "team").json()["LinkId"];
    EXPECT_EQ(openWebClient(other, "wrong-token").status, 403);
    EXPECT_EQ(emulator.request("GET", kWebclient1, "/default.aspx?sas=bm9wZQ%3D%3D").status, 403);
    EXPECT_EQ(createDirectLink("wrong-token", "alice-pw", "*LOGIN").status, 401);
    EXPECT_EQ(createDirectLink(alice.domainToken, "wrong", "*LOGIN").status, 403);
}

}  // namespace
}  // namespace vh::test
