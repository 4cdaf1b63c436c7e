// The interface language: the one the user chose, else the first of the
// system's preferred languages that has a translation built into the
// program, else English. Translations are Qt translations (compiled .qm files
// under the resource prefix ":/i18n"); their keys are the English texts, so
// a text without a translation shows as written.
//
// Main thread only, except language(), which any thread may call once
// setup() has run.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTranslator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vh {

// The text for `key` in the current language; the key itself when there is
// no translation, "" for an empty key. The comment is for translators only.
QString VHLocalizedString(const char* key, const char* comment = "");
QString VHLocalizedString(const std::string& key, const char* comment = "");

class VHLocalization : public QObject {
    Q_OBJECT
  public:
    // The settings key of the chosen language.
    static constexpr const char* kLanguageKey = "Varnholt_language";

    static VHLocalization& instance();

    // Chooses the language and loads its translation (once).
    static void setup();
    // The current language code ("en", "de", ...); chooses and stores it on
    // the first call.
    static std::string language();
    // Makes `code` current and stores it; loads its translation (none: every
    // text shows its key) and re-labels every open window before returning.
    static void setLanguage(const std::string& code);

    // The languages built into the program, English first.
    static std::vector<std::string> availableLanguages();
    static bool hasTranslation(const std::string& code);
    // The language's name in itself ("Deutsch"); the code when unknown.
    static QString nativeName(const std::string& code);
    // The first of `preferred` (codes such as "de-AT" or "fr") with a
    // translation, as a bare language code; "en" when none has one.
    static std::string chooseLanguage(const QStringList& preferred);

    // Test-only: forgets the cached language and unloads the translation.
    static void resetForTests();

  signals:
    // After a change, once the widgets have been told (QEvent::LanguageChange).
    void languageChanged();

  private:
    VHLocalization() = default;
    void load(const std::string& code);

    std::mutex mutex_;  // guards language_
    std::string language_;
    std::unique_ptr<QTranslator> translator_;
};

}  // namespace vh
