// The interface language: which one is chosen, that it is kept, and that
// every text the program shows has its German and French translation.
#include <gtest/gtest.h>

#include <QFile>
#include <QTranslator>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "desktop/VHLocalization.h"
#include "lib/VHSettings.h"

namespace vh::test {
namespace {

class Localization : public testing::Test {
  protected:
    void SetUp() override { VHLocalization::resetForTests(); }
    void TearDown() override { VHLocalization::resetForTests(); }
};

TEST_F(Localization, TheFirstPreferredLanguageWithATranslationWinsElseEnglish) {
    EXPECT_EQ(VHLocalization::chooseLanguage({"it-IT", "de-AT", "fr"}), "de");
    EXPECT_EQ(VHLocalization::chooseLanguage({"fr_CH", "de"}), "fr");
    EXPECT_EQ(VHLocalization::chooseLanguage({"it", "pt-BR"}), "en");
    EXPECT_EQ(VHLocalization::chooseLanguage({}), "en");
}

TEST_F(Localization, AChosenLanguageIsStoredAndKeysShowThemselvesWithoutATranslation) {
    VHLocalization::setLanguage("de");
    EXPECT_EQ(VHSettings::string(VHLocalization::kLanguageKey), "de");
    EXPECT_EQ(VHLocalizedString("Sign In"), "Anmelden");
    EXPECT_EQ(VHLocalizedString("A text nobody translated"), "A text nobody translated");
    EXPECT_EQ(VHLocalizedString(""), "");

    // A later start reads it back instead of asking the system.
    VHLocalization::resetForTests();
    EXPECT_EQ(VHLocalization::language(), "de");
    EXPECT_EQ(VHLocalizedString("Sign In"), "Anmelden");

    // An unknown code is kept as it is; every text shows in English.
    VHLocalization::setLanguage("xx");
    EXPECT_EQ(VHLocalization::language(), "xx");
    EXPECT_EQ(VHLocalizedString("Sign In"), "Sign In");
}

// The keys in the sources: the literals handed to VHLocalizedString, and the
// title and text of alerts (showAlert translates them); adjacent literals
// are joined.
std::set<std::string> keysInSources() {
    const std::string literals = R"re(((?:"(?:[^"\\]|\\.)*"\s*)+))re";
    const std::vector<std::regex> calls = {
        std::regex(R"(VHLocalizedString\(\s*)" + literals),
        std::regex(R"(showAlert\(\s*)" + literals),
        std::regex(R"(showAlert\(\s*(?:"(?:[^"\\]|\\.)*"\s*)+,\s*)" + literals)};
    const std::regex literal(R"re("((?:[^"\\]|\\.)*)")re");
    std::set<std::string> keys;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(VH_SOURCE_DIR)) {
        if (entry.path().extension() != ".cpp") continue;
        std::stringstream text;
        text << std::ifstream(entry.path()).rdbuf();
        std::string source = text.str();
        for (const std::regex& call : calls) {
            for (std::sregex_iterator it(source.begin(), source.end(), call), end; it != end;
                 ++it) {
                std::string joined, found = (*it)[1];
                for (std::sregex_iterator part(found.begin(), found.end(), literal); part != end;
                     ++part)
                    joined += std::regex_replace((*part)[1].str(), std::regex(R"(\\(.))"), "$1");
                keys.insert(joined);
            }
        }
    }
    return keys;
}

TEST_F(Localization, EveryTextOfTheProgramHasItsGermanAndFrenchTranslation) {
    std::set<std::string> keys = keysInSources();
    ASSERT_GT(keys.size(), 40u);
    for (const char* code : {"de", "fr"}) {
        QTranslator translator;
        ASSERT_TRUE(translator.load(QString(":/i18n/varnholt_%1.qm").arg(code)));
        for (const std::string& key : keys) {
            EXPECT_FALSE(translator.translate("Varnholt", key.c_str()).isEmpty())
                << code << " lacks: " << key;
        }
    }
}

}  // namespace
}  // namespace vh::test
