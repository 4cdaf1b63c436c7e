<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>Varnholt</name>
    <message>
        <source>%1 Log</source>
        <translation>%1-Protokoll</translation>
    </message>
    <message>
        <source>%1 Preferences</source>
        <translation>%1 – Einstellungen</translation>
    </message>
    <message>
        <source>%1 Transfers</source>
        <translation>%1 – Übertragungen</translation>
    </message>
    <message>
        <source>(offline)</source>
        <translation>(offline)</translation>
    </message>
    <message>
        <source>Account</source>
        <translation>Konto</translation>
    </message>
    <message>
        <source>All files are up to date</source>
        <translation>Alle Dateien sind aktuell</translation>
    </message>
    <message>
        <source>Cache</source>
        <translation>Cache</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Cannot clear the cache</source>
        <translation>Cache kann nicht geleert werden</translation>
    </message>
    <message>
        <source>Cannot reach the service (%1). Trying again every minute.</source>
        <translation>Der Dienst ist nicht erreichbar (%1). Neuer Versuch jede Minute.</translation>
    </message>
    <message>
        <source>Cannot rename/move the file.</source>
        <translation>Die Datei kann nicht umbenannt oder verschoben werden.</translation>
    </message>
    <message>
        <source>Changes not yet confirmed by the service: %1. They will be lost.</source>
        <translation>Vom Dienst noch nicht bestätigte Änderungen: %1. Sie gehen verloren.</translation>
    </message>
    <message>
        <source>Choose</source>
        <translation>Auswählen</translation>
    </message>
    <message>
        <source>Choose a Folder</source>
        <translation>Ordner auswählen</translation>
    </message>
    <message>
        <source>Choose…</source>
        <translation>Auswählen …</translation>
    </message>
    <message>
        <source>Clear Cache</source>
        <translation>Cache leeren</translation>
    </message>
    <message>
        <source>Clear Cache…</source>
        <translation>Cache leeren …</translation>
    </message>
    <message>
        <source>Clear the cache?</source>
        <translation>Cache leeren?</translation>
    </message>
    <message>
        <source>Copy a public link to the clipboard</source>
        <translation>Öffentlichen Link in die Zwischenablage kopieren</translation>
    </message>
    <message>
        <source>Direction</source>
        <translation>Richtung</translation>
    </message>
    <message>
        <source>Do you really want to sign out of %1? The drive goes and its downloaded files are deleted from this computer.</source>
        <translation>Möchten Sie sich wirklich von %1 abmelden? Das Laufwerk verschwindet, und seine heruntergeladenen Dateien werden von diesem Computer gelöscht.</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>Herunterladen</translation>
    </message>
    <message>
        <source>Downloaded files are deleted from this computer; they stay on the service and download again when opened.</source>
        <translation>Heruntergeladene Dateien werden von diesem Computer gelöscht; sie bleiben beim Dienst und werden beim Öffnen erneut heruntergeladen.</translation>
    </message>
    <message>
        <source>Downloaded files use %1 on this computer.</source>
        <translation>Heruntergeladene Dateien belegen %1 auf diesem Computer.</translation>
    </message>
    <message>
        <source>E-mail address:</source>
        <translation>E-Mail-Adresse:</translation>
    </message>
    <message>
        <source>FUSE is not available</source>
        <translation>FUSE ist nicht verfügbar</translation>
    </message>
    <message>
        <source>File Name cannot contain any of these characters \/:*?"&lt;&gt;|</source>
        <translation>Dateinamen dürfen keines dieser Zeichen enthalten: \/:*?"&lt;&gt;|</translation>
    </message>
    <message>
        <source>Files to download: %1 · %2 left</source>
        <translation>Herunterzuladende Dateien: %1 · noch %2</translation>
    </message>
    <message>
        <source>Files to upload: %1 · %2 left</source>
        <translation>Hochzuladende Dateien: %1 · noch %2</translation>
    </message>
    <message>
        <source>Folder:</source>
        <translation>Ordner:</translation>
    </message>
    <message>
        <source>For 1 day</source>
        <translation>1 Tag lang</translation>
    </message>
    <message>
        <source>For 1 week</source>
        <translation>1 Woche lang</translation>
    </message>
    <message>
        <source>For 30 days</source>
        <translation>30 Tage lang</translation>
    </message>
    <message>
        <source>For 4 hours</source>
        <translation>4 Stunden lang</translation>
    </message>
    <message>
        <source>General</source>
        <translation>Allgemein</translation>
    </message>
    <message>
        <source>Invalid path</source>
        <translation>Ungültiger Pfad</translation>
    </message>
    <message>
        <source>Keep downloaded files:</source>
        <translation>Heruntergeladene Dateien behalten:</translation>
    </message>
    <message>
        <source>Language:</source>
        <translation>Sprache:</translation>
    </message>
    <message>
        <source>Lock failed</source>
        <translation>Sperren fehlgeschlagen</translation>
    </message>
    <message>
        <source>Log…</source>
        <translation>Protokoll …</translation>
    </message>
    <message>
        <source>Measuring the downloaded files…</source>
        <translation>Heruntergeladene Dateien werden gemessen …</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>No shares</source>
        <translation>Keine Freigaben</translation>
    </message>
    <message>
        <source>None chosen</source>
        <translation>Keiner ausgewählt</translation>
    </message>
    <message>
        <source>Not signed in</source>
        <translation>Nicht angemeldet</translation>
    </message>
    <message>
        <source>Ok</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Open Log Folder</source>
        <translation>Protokollordner öffnen</translation>
    </message>
    <message>
        <source>Open Varnholt Drive</source>
        <translation>Varnholt-Laufwerk öffnen</translation>
    </message>
    <message>
        <source>Open Web Client</source>
        <translation>Web-Client öffnen</translation>
    </message>
    <message>
        <source>Password:</source>
        <translation>Passwort:</translation>
    </message>
    <message>
        <source>Pause Transfers</source>
        <translation>Übertragungen anhalten</translation>
    </message>
    <message>
        <source>Please choose a different name</source>
        <translation>Bitte wählen Sie einen anderen Namen</translation>
    </message>
    <message>
        <source>Please wait until the file is uploaded on server and then try again.</source>
        <translation>Bitte warten Sie, bis die Datei auf den Server hochgeladen ist, und versuchen Sie es dann erneut.</translation>
    </message>
    <message>
        <source>Preferences…</source>
        <translation>Einstellungen …</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Fortschritt</translation>
    </message>
    <message>
        <source>Quit Varnholt</source>
        <translation>Varnholt beenden</translation>
    </message>
    <message>
        <source>Screenshots</source>
        <translation>Bildschirmfotos</translation>
    </message>
    <message>
        <source>Screenshots are saved in this folder of the drive:</source>
        <translation>Bildschirmfotos werden in diesem Ordner des Laufwerks gespeichert:</translation>
    </message>
    <message>
        <source>Shares</source>
        <translation>Freigaben</translation>
    </message>
    <message>
        <source>Sign In</source>
        <translation>Anmelden</translation>
    </message>
    <message>
        <source>Sign In…</source>
        <translation>Anmelden …</translation>
    </message>
    <message>
        <source>Sign Out</source>
        <translation>Abmelden</translation>
    </message>
    <message>
        <source>Sign Out…</source>
        <translation>Abmelden …</translation>
    </message>
    <message>
        <source>Sign in to %1</source>
        <translation>Bei %1 anmelden</translation>
    </message>
    <message>
        <source>Sign out of %1?</source>
        <translation>Von %1 abmelden?</translation>
    </message>
    <message>
        <source>Sign-in refused: please sign in again</source>
        <translation>Anmeldung abgelehnt: bitte erneut anmelden</translation>
    </message>
    <message>
        <source>Signed in as %1</source>
        <translation>Angemeldet als %1</translation>
    </message>
    <message>
        <source>Signed in as:</source>
        <translation>Angemeldet als:</translation>
    </message>
    <message>
        <source>Signing in…</source>
        <translation>Anmeldung läuft …</translation>
    </message>
    <message>
        <source>Signing out removes the drive and deletes the downloaded files from this computer.</source>
        <translation>Die Abmeldung entfernt das Laufwerk und löscht die heruntergeladenen Dateien von diesem Computer.</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Größe</translation>
    </message>
    <message>
        <source>Some changes are not uploaded yet. Try again once every file is up to date.</source>
        <translation>Einige Änderungen sind noch nicht hochgeladen. Versuchen Sie es erneut, sobald alle Dateien aktuell sind.</translation>
    </message>
    <message>
        <source>Start %1 when I log in</source>
        <translation>%1 bei der Anmeldung am Computer starten</translation>
    </message>
    <message>
        <source>Start at login</source>
        <translation>Start bei der Anmeldung</translation>
    </message>
    <message>
        <source>The autostart entry cannot be removed.</source>
        <translation>Der Autostart-Eintrag kann nicht entfernt werden.</translation>
    </message>
    <message>
        <source>The autostart entry cannot be written.</source>
        <translation>Der Autostart-Eintrag kann nicht geschrieben werden.</translation>
    </message>
    <message>
        <source>The e-mail address or the password is wrong (U101). Check both and try again.</source>
        <translation>Die E-Mail-Adresse oder das Passwort ist falsch (U101). Prüfen Sie beides und versuchen Sie es erneut.</translation>
    </message>
    <message>
        <source>The main log of today; new lines appear as they are written.</source>
        <translation>Das Hauptprotokoll von heute; neue Zeilen erscheinen, sobald sie geschrieben werden.</translation>
    </message>
    <message>
        <source>The service did not complete the sign-in. Trying again every minute.</source>
        <translation>Der Dienst hat die Anmeldung nicht abgeschlossen. Neuer Versuch jede Minute.</translation>
    </message>
    <message>
        <source>The service does not accept this computer (U107). Ask your administrator to allow it, then sign in again.</source>
        <translation>Der Dienst akzeptiert diesen Computer nicht (U107). Bitten Sie Ihre Administration, ihn zuzulassen, und melden Sie sich dann erneut an.</translation>
    </message>
    <message>
        <source>The service ordered the data of this computer to be deleted. Sign in again to start afresh.</source>
        <translation>Der Dienst hat angeordnet, die Daten dieses Computers zu löschen. Melden Sie sich erneut an, um neu zu beginnen.</translation>
    </message>
    <message>
        <source>The service refused the sign-in: %1</source>
        <translation>Der Dienst hat die Anmeldung abgelehnt: %1</translation>
    </message>
    <message>
        <source>Transfers paused</source>
        <translation>Übertragungen angehalten</translation>
    </message>
    <message>
        <source>Transfers…</source>
        <translation>Übertragungen …</translation>
    </message>
    <message>
        <source>Unable to mount drive</source>
        <translation>Laufwerk kann nicht eingebunden werden</translation>
    </message>
    <message>
        <source>Until I clear them</source>
        <translation>Bis ich sie lösche</translation>
    </message>
    <message>
        <source>Upload</source>
        <translation>Hochladen</translation>
    </message>
    <message>
        <source>Upload new screenshots to the drive</source>
        <translation>Neue Bildschirmfotos auf das Laufwerk hochladen</translation>
    </message>
    <message>
        <source>Varnholt needs FUSE: install the package fuse3.</source>
        <translation>Varnholt benötigt FUSE: Installieren Sie das Paket fuse3.</translation>
    </message>
    <message>
        <source>You can't move files between shares.</source>
        <translation>Dateien können nicht zwischen Freigaben verschoben werden.</translation>
    </message>
    <message>
        <source>You cannot save screenshoots in a readonly folder. Please select another location!</source>
        <translation>Bildschirmfotos können nicht in einem schreibgeschützten Ordner gespeichert werden. Bitte wählen Sie einen anderen Ort!</translation>
    </message>
    <message>
        <source>You do not have permissions to alter items in read only share.</source>
        <translation>Sie dürfen in einer schreibgeschützten Freigabe nichts ändern.</translation>
    </message>
</context>
</TS>
