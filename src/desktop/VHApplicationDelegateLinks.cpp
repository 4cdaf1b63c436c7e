// Public links of files, handed to the clipboard or to an e-mail, and the
// drive's folders opened in the file manager.
#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHDesktopServices.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"

namespace vh {

std::string VHApplicationDelegate::mailtoAddress(const std::string& link) {
    return VHFormat("mailto:%@?%@&%@", "", "subject=" + VHEscapeURLValue("File link"),
                    "body=" + VHEscapeURLValue(link));
}

void VHApplicationDelegate::putFileLinkToClipboard(const VHFile& file, LinkDone done,
                                                   LinkDone failed) {
    std::string name = file.publicName;
    VHConnector::defaultConnector().createFilePublicLink(
        file,
        [name, done](const std::string& link) {
            if (VHDesktopServices::copyToClipboard(link)) {
                VHDesktopServices::notify("Link was copied to Clipboard",
                                          VHFormat("File : %@", name));
            } else {
                VHLog(kLogMain, "Public link of %@: %@", name, link);
                VHDesktopServices::notify(VHFormat("Public link of %@", name), link);
            }
            if (done) done(link);
        },
        std::move(failed));
}

void VHApplicationDelegate::emailFileLink(const VHFile& file, LinkDone done, LinkDone failed) {
    VHConnector::defaultConnector().createFilePublicLink(
        file,
        [done, failed](const std::string& link) {
            std::string address = mailtoAddress(link);
            if (!VHDesktopServices::openURL(address)) {
                if (failed) failed("xdg-open could not be started");
                return;
            }
            if (done) done(address);
        },
        std::move(failed));
}

void VHApplicationDelegate::openRootFolder() {
    VHDesktopServices::openURL(VHFuseUtils::mountPath());
}

void VHApplicationDelegate::openShareFolder(const ManagedShare& share) {
    VHDesktopServices::openURL(VHFuseUtils::relativePathToFull("/" + share.displayName()));
}

}  // namespace vh
