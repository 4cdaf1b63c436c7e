#include "desktop/VHLocalization.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QLocale>
#include <QTranslator>

#include "lib/VHLog.h"
#include "lib/VHSettings.h"

namespace vh {

namespace {

// Every text is looked up in one context: keys are whole English texts.
constexpr const char* kContext = "Varnholt";

QString resourcePath(const std::string& code) {
    return QString(":/i18n/varnholt_%1.qm").arg(QString::fromStdString(code));
}

}  // namespace

QString VHLocalizedString(const char* key, const char* /*comment*/) {
    if (!key || !*key) return QString();
    return QCoreApplication::translate(kContext, key);
}

QString VHLocalizedString(const std::string& key, const char* comment) {
    return VHLocalizedString(key.c_str(), comment);
}

VHLocalization& VHLocalization::instance() {
    static VHLocalization* localization = new VHLocalization;  // lives until exit
    return *localization;
}

void VHLocalization::setup() {
    language();
}

std::string VHLocalization::language() {
    VHLocalization& self = instance();
    {
        std::lock_guard lock(self.mutex_);
        if (!self.language_.empty()) return self.language_;
    }
    std::string code = VHSettings::string(kLanguageKey);
    if (code.empty()) code = chooseLanguage(QLocale::system().uiLanguages());
    setLanguage(code);
    return code;
}

void VHLocalization::setLanguage(const std::string& code) {
    VHLocalization& self = instance();
    {
        std::lock_guard lock(self.mutex_);
        self.language_ = code;
    }
    VHSettings::setValue(kLanguageKey, QString::fromStdString(code));
    VHSettings::sync();
    self.load(code);
    // Widgets are told by posted events; they are delivered now, so that
    // every window shows the new language when this returns.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LanguageChange);
    emit self.languageChanged();
}

void VHLocalization::load(const std::string& code) {
    if (translator_) QCoreApplication::removeTranslator(translator_.get());
    translator_ = std::make_unique<QTranslator>();
    if (!translator_->load(resourcePath(code))) {
        VHLog(kLogMain, "No translation for language %@: texts show in English.", code);
        translator_.reset();
        // Removing the old one already told the widgets.
        return;
    }
    QCoreApplication::installTranslator(translator_.get());
}

std::vector<std::string> VHLocalization::availableLanguages() {
    std::vector<std::string> codes;
    for (const char* code : {"en", "de", "fr"}) {
        if (hasTranslation(code)) codes.push_back(code);
    }
    return codes;
}

bool VHLocalization::hasTranslation(const std::string& code) {
    return !code.empty() && QFile::exists(resourcePath(code));
}

QString VHLocalization::nativeName(const std::string& code) {
    if (code == "en") return "English";
    if (code == "de") return "Deutsch";
    if (code == "fr") return QString::fromUtf8("Français");
    return QString::fromStdString(code);
}

std::string VHLocalization::chooseLanguage(const QStringList& preferred) {
    for (const QString& entry : preferred) {
        std::string code = entry.section('-', 0, 0).section('_', 0, 0).toLower().toStdString();
        if (hasTranslation(code)) return code;
    }
    return "en";
}

void VHLocalization::resetForTests() {
    VHLocalization& self = instance();
    {
        std::lock_guard lock(self.mutex_);
        self.language_.clear();
    }
    if (self.translator_) QCoreApplication::removeTranslator(self.translator_.get());
    self.translator_.reset();
}

}  // namespace vh
