#include "desktop/VHStartupMigration.h"

#include "lib/VHAppInfo.h"
#include "lib/VHLog.h"
#include "lib/VHSettings.h"
#include "service/VHConnector.h"

namespace vh {

void VHStartupMigration::migrate() {
    std::string key = VHSettings::prependAppTitle("lastMigratedVersion");
    std::string current = kShortVersion;
    std::string lastMigrated = VHSettings::string(key);
    VHLog(kLogMain, "currentVersion: %@, lastMigratedVersion: %@", current, lastMigrated);
    if (current == lastMigrated) {
        VHLog(kLogMain, "App already migrated to %@", current);
        return;
    }
    // The login-item launcher has no older form to migrate on this platform.
    to2_6_0();
    VHSettings::setValue(key, QString::fromStdString(current));
    VHSettings::sync();
}

void VHStartupMigration::to2_6_0() {
    VHLog(kLogMain, "Start migrating app to 2.6.0");
    VHConnector& connector = VHConnector::defaultConnector();
    connector.loadCredentials();
    if (!connector.credentialsAvailable()) return;
    std::string username = connector.username();
    std::string password = connector.password();
    connector.logout();
    connector.setUsername(username);
    connector.setPassword(password);
    connector.saveCredentials();
}

}  // namespace vh
