#include "lib/VHSettings.h"

#include <QSettings>
#include <cstdlib>

#include "lib/VHAppInfo.h"
#include "lib/VHPaths.h"

namespace vh {

namespace {

QSettings open() {
    return QSettings(QString::fromStdString(VHPaths::settingsFile()), QSettings::IniFormat);
}

}  // namespace

std::string VHSettings::prependAppTitle(const std::string& key) {
    return std::string(kAppTitle) + "." + key;
}

bool VHSettings::contains(const std::string& key) {
    return open().contains(QString::fromStdString(key));
}

QVariant VHSettings::value(const std::string& key, const QVariant& fallback) {
    return open().value(QString::fromStdString(key), fallback);
}

std::string VHSettings::string(const std::string& key, const std::string& fallback) {
    QVariant v = value(key);
    return v.isValid() ? v.toString().toStdString() : fallback;
}

bool VHSettings::boolean(const std::string& key, bool fallback) {
    QVariant v = value(key);
    return v.isValid() ? v.toBool() : fallback;
}

void VHSettings::setValue(const std::string& key, const QVariant& value) {
    open().setValue(QString::fromStdString(key), value);
}

void VHSettings::remove(const std::string& key) {
    open().remove(QString::fromStdString(key));
}

void VHSettings::sync() {
    open().sync();
}

std::string VHSettings::overridable(const char* envName, const std::string& key,
                                    const std::string& fallback) {
    const char* fromEnv = std::getenv(envName);
    if (fromEnv && *fromEnv) return fromEnv;
    return string(key, fallback);
}

}  // namespace vh
