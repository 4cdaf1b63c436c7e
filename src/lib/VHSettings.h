// The per-user settings store: an INI file at VHPaths::settingsFile().
//
// Key names are used exactly as given; application keys are formed with
// prependAppTitle ("username" -> "Varnholt.username"). Safe from any thread:
// each call works on its own QSettings object over the shared file.
#pragma once

#include <QVariant>
#include <optional>
#include <string>

namespace vh {

class VHSettings {
  public:
    static std::string prependAppTitle(const std::string& key);

    static bool contains(const std::string& key);
    static QVariant value(const std::string& key, const QVariant& fallback = {});
    static std::string string(const std::string& key, const std::string& fallback = "");
    static bool boolean(const std::string& key, bool fallback = false);
    static void setValue(const std::string& key, const QVariant& value);
    static void remove(const std::string& key);
    // Writes pending changes to disk now.
    static void sync();

    // A setting that the environment can override: the environment variable
    // when set, else the setting, else `fallback`.
    static std::string overridable(const char* envName, const std::string& key,
                                   const std::string& fallback = "");
};

}  // namespace vh
