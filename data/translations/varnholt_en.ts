<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>Varnholt</name>
    <message>
        <source>%1 Log</source>
        <translation>%1 Log</translation>
    </message>
    <message>
        <source>%1 Preferences</source>
        <translation>%1 Preferences</translation>
    </message>
    <message>
        <source>%1 Transfers</source>
        <translation>%1 Transfers</translation>
    </message>
    <message>
        <source>(offline)</source>
        <translation>(offline)</translation>
    </message>
    <message>
        <source>Account</source>
        <translation>Account</translation>
    </message>
    <message>
        <source>All files are up to date</source>
        <translation>All files are up to date</translation>
    </message>
    <message>
        <source>Cache</source>
        <translation>Cache</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>Cannot clear the cache</source>
        <translation>Cannot clear the cache</translation>
    </message>
    <message>
        <source>Cannot reach the service (%1). Trying again every minute.</source>
        <translation>Cannot reach the service (%1). Trying again every minute.</translation>
    </message>
    <message>
        <source>Cannot rename/move the file.</source>
        <translation>Cannot rename/move the file.</translation>
    </message>
    <message>
        <source>Changes not yet confirmed by the service: %1. They will be lost.</source>
        <translation>Changes not yet confirmed by the service: %1. They will be lost.</translation>
    </message>
    <message>
        <source>Choose</source>
        <translation>Choose</translation>
    </message>
    <message>
        <source>Choose a Folder</source>
        <translation>Choose a Folder</translation>
    </message>
    <message>
        <source>Choose…</source>
        <translation>Choose…</translation>
    </message>
    <message>
        <source>Clear Cache</source>
        <translation>Clear Cache</translation>
    </message>
    <message>
        <source>Clear Cache…</source>
        <translation>Clear Cache…</translation>
    </message>
    <message>
        <source>Clear the cache?</source>
        <translation>Clear the cache?</translation>
    </message>
    <message>
        <source>Copy a public link to the clipboard</source>
        <translation>Copy a public link to the clipboard</translation>
    </message>
    <message>
        <source>Direction</source>
        <translation>Direction</translation>
    </message>
    <message>
        <source>Do you really want to sign out of %1? The drive goes and its downloaded files are deleted from this computer.</source>
        <translation>Do you really want to sign out of %1? The drive goes and its downloaded files are deleted from this computer.</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>Download</translation>
    </message>
    <message>
        <source>Downloaded files are deleted from this computer; they stay on the service and download again when opened.</source>
        <translation>Downloaded files are deleted from this computer; they stay on the service and download again when opened.</translation>
    </message>
    <message>
        <source>Downloaded files use %1 on this computer.</source>
        <translation>Downloaded files use %1 on this computer.</translation>
    </message>
    <message>
        <source>E-mail address:</source>
        <translation>E-mail address:</translation>
    </message>
    <message>
        <source>FUSE is not available</source>
        <translation>FUSE is not available</translation>
    </message>
    <message>
        <source>File Name cannot contain any of these characters \/:*?"&lt;&gt;|</source>
        <translation>File Name cannot contain any of these characters \/:*?"&lt;&gt;|</translation>
    </message>
    <message>
        <source>Files to download: %1 · %2 left</source>
        <translation>Files to download: %1 · %2 left</translation>
    </message>
    <message>
        <source>Files to upload: %1 · %2 left</source>
        <translation>Files to upload: %1 · %2 left</translation>
    </message>
    <message>
        <source>Folder:</source>
        <translation>Folder:</translation>
    </message>
    <message>
        <source>For 1 day</source>
        <translation>For 1 day</translation>
    </message>
    <message>
        <source>For 1 week</source>
        <translation>For 1 week</translation>
    </message>
    <message>
        <source>For 30 days</source>
        <translation>For 30 days</translation>
    </message>
    <message>
        <source>For 4 hours</source>
        <translation>For 4 hours</translation>
    </message>
    <message>
        <source>General</source>
        <translation>General</translation>
    </message>
    <message>
        <source>Invalid path</source>
        <translation>Invalid path</translation>
    </message>
    <message>
        <source>Keep downloaded files:</source>
        <translation>Keep downloaded files:</translation>
    </message>
    <message>
        <source>Language:</source>
        <translation>Language:</translation>
    </message>
    <message>
        <source>Lock failed</source>
        <translation>Lock failed</translation>
    </message>
    <message>
        <source>Log…</source>
        <translation>Log…</translation>
    </message>
    <message>
        <source>Measuring the downloaded files…</source>
        <translation>Measuring the downloaded files…</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>No shares</source>
        <translation>No shares</translation>
    </message>
    <message>
        <source>None chosen</source>
        <translation>None chosen</translation>
    </message>
    <message>
        <source>Not signed in</source>
        <translation>Not signed in</translation>
    </message>
    <message>
        <source>Ok</source>
        <translation>Ok</translation>
    </message>
    <message>
        <source>Open Log Folder</source>
        <translation>Open Log Folder</translation>
    </message>
    <message>
        <source>Open Varnholt Drive</source>
        <translation>Open Varnholt Drive</translation>
    </message>
    <message>
        <source>Open Web Client</source>
        <translation>Open Web Client</translation>
    </message>
    <message>
        <source>Password:</source>
        <translation>Password:</translation>
    </message>
    <message>
        <source>Pause Transfers</source>
        <translation>Pause Transfers</translation>
    </message>
    <message>
        <source>Please choose a different name</source>
        <translation>Please choose a different name</translation>
    </message>
    <message>
        <source>Please wait until the file is uploaded on server and then try again.</source>
        <translation>Please wait until the file is uploaded on server and then try again.</translation>
    </message>
    <message>
        <source>Preferences…</source>
        <translation>Preferences…</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Progress</translation>
    </message>
    <message>
        <source>Quit Varnholt</source>
        <translation>Quit Varnholt</translation>
    </message>
    <message>
        <source>Screenshots</source>
        <translation>Screenshots</translation>
    </message>
    <message>
        <source>Screenshots are saved in this folder of the drive:</source>
        <translation>Screenshots are saved in this folder of the drive:</translation>
    </message>
    <message>
        <source>Shares</source>
        <translation>Shares</translation>
    </message>
    <message>
        <source>Sign In</source>
        <translation>Sign In</translation>
    </message>
    <message>
        <source>Sign In…</source>
        <translation>Sign In…</translation>
    </message>
    <message>
        <source>Sign Out</source>
        <translation>Sign Out</translation>
    </message>
    <message>
        <source>Sign Out…</source>
        <translation>Sign Out…</translation>
    </message>
    <message>
        <source>Sign in to %1</source>
        <translation>Sign in to %1</translation>
    </message>
    <message>
        <source>Sign out of %1?</source>
        <translation>Sign out of %1?</translation>
    </message>
    <message>
        <source>Sign-in refused: please sign in again</source>
        <translation>Sign-in refused: please sign in again</translation>
    </message>
    <message>
        <source>Signed in as %1</source>
        <translation>Signed in as %1</translation>
    </message>
    <message>
        <source>Signed in as:</source>
        <translation>Signed in as:</translation>
    </message>
    <message>
        <source>Signing in…</source>
        <translation>Signing in…</translation>
    </message>
    <message>
        <source>Signing out removes the drive and deletes the downloaded files from this computer.</source>
        <translation>Signing out removes the drive and deletes the downloaded files from this computer.</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Size</translation>
    </message>
    <message>
        <source>Some changes are not uploaded yet. Try again once every file is up to date.</source>
        <translation>Some changes are not uploaded yet. Try again once every file is up to date.</translation>
    </message>
    <message>
        <source>Start %1 when I log in</source>
        <translation>Start %1 when I log in</translation>
    </message>
    <message>
        <source>Start at login</source>
        <translation>Start at login</translation>
    </message>
    <message>
        <source>The autostart entry cannot be removed.</source>
        <translation>The autostart entry cannot be removed.</translation>
    </message>
    <message>
        <source>The autostart entry cannot be written.</source>
        <translation>The autostart entry cannot be written.</translation>
    </message>
    <message>
        <source>The e-mail address or the password is wrong (U101). Check both and try again.</source>
        <translation>The e-mail address or the password is wrong (U101). Check both and try again.</translation>
    </message>
    <message>
        <source>The main log of today; new lines appear as they are written.</source>
        <translation>The main log of today; new lines appear as they are written.</translation>
    </message>
    <message>
        <source>The service did not complete the sign-in. Trying again every minute.</source>
        <translation>The service did not complete the sign-in. Trying again every minute.</translation>
    </message>
    <message>
        <source>The service does not accept this computer (U107). Ask your administrator to allow it, then sign in again.</source>
        <translation>The service does not accept this computer (U107). Ask your administrator to allow it, then sign in again.</translation>
    </message>
    <message>
        <source>The service ordered the data of this computer to be deleted. Sign in again to start afresh.</source>
        <translation>The service ordered the data of this computer to be deleted. Sign in again to start afresh.</translation>
    </message>
    <message>
        <source>The service refused the sign-in: %1</source>
        <translation>The service refused the sign-in: %1</translation>
    </message>
    <message>
        <source>Transfers paused</source>
        <translation>Transfers paused</translation>
    </message>
    <message>
        <source>Transfers…</source>
        <translation>Transfers…</translation>
    </message>
    <message>
        <source>Unable to mount drive</source>
        <translation>Unable to mount drive</translation>
    </message>
    <message>
        <source>Until I clear them</source>
        <translation>Until I clear them</translation>
    </message>
    <message>
        <source>Upload</source>
        <translation>Upload</translation>
    </message>
    <message>
        <source>Upload new screenshots to the drive</source>
        <translation>Upload new screenshots to the drive</translation>
    </message>
    <message>
        <source>Varnholt needs FUSE: install the package fuse3.</source>
        <translation>Varnholt needs FUSE: install the package fuse3.</translation>
    </message>
    <message>
        <source>You can't move files between shares.</source>
        <translation>You can't move files between shares.</translation>
    </message>
    <message>
        <source>You cannot save screenshoots in a readonly folder. Please select another location!</source>
        <translation>You cannot save screenshoots in a readonly folder. Please select another location!</translation>
    </message>
    <message>
        <source>You do not have permissions to alter items in read only share.</source>
        <translation>You do not have permissions to alter items in read only share.</translation>
    </message>
</context>
</TS>
