<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>Varnholt</name>
    <message>
        <source>%1 Log</source>
        <translation>Journal de %1</translation>
    </message>
    <message>
        <source>%1 Preferences</source>
        <translation>Préférences de %1</translation>
    </message>
    <message>
        <source>%1 Transfers</source>
        <translation>Transferts de %1</translation>
    </message>
    <message>
        <source>(offline)</source>
        <translation>(hors ligne)</translation>
    </message>
    <message>
        <source>Account</source>
        <translation>Compte</translation>
    </message>
    <message>
        <source>All files are up to date</source>
        <translation>Tous les fichiers sont à jour</translation>
    </message>
    <message>
        <source>Cache</source>
        <translation>Cache</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <source>Cannot clear the cache</source>
        <translation>Impossible de vider le cache</translation>
    </message>
    <message>
        <source>Cannot reach the service (%1). Trying again every minute.</source>
        <translation>Le service est injoignable (%1). Nouvel essai chaque minute.</translation>
    </message>
    <message>
        <source>Cannot rename/move the file.</source>
        <translation>Impossible de renommer ou déplacer le fichier.</translation>
    </message>
    <message>
        <source>Changes not yet confirmed by the service: %1. They will be lost.</source>
        <translation>Modifications pas encore confirmées par le service : %1. Elles seront perdues.</translation>
    </message>
    <message>
        <source>Choose</source>
        <translation>Choisir</translation>
    </message>
    <message>
        <source>Choose a Folder</source>
        <translation>Choisir un dossier</translation>
    </message>
    <message>
        <source>Choose…</source>
        <translation>Choisir…</translation>
    </message>
    <message>
        <source>Clear Cache</source>
        <translation>Vider le cache</translation>
    </message>
    <message>
        <source>Clear Cache…</source>
        <translation>Vider le cache…</translation>
    </message>
    <message>
        <source>Clear the cache?</source>
        <translation>Vider le cache ?</translation>
    </message>
    <message>
        <source>Copy a public link to the clipboard</source>
        <translation>Copier un lien public dans le presse-papiers</translation>
    </message>
    <message>
        <source>Direction</source>
        <translation>Sens</translation>
    </message>
    <message>
        <source>Do you really want to sign out of %1? The drive goes and its downloaded files are deleted from this computer.</source>
        <translation>Voulez-vous vraiment vous déconnecter de %1 ? Le lecteur disparaît et ses fichiers téléchargés sont supprimés de cet ordinateur.</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>Téléchargement</translation>
    </message>
    <message>
        <source>Downloaded files are deleted from this computer; they stay on the service and download again when opened.</source>
        <translation>Les fichiers téléchargés sont supprimés de cet ordinateur ; ils restent sur le service et sont de nouveau téléchargés à l’ouverture.</translation>
    </message>
    <message>
        <source>Downloaded files use %1 on this computer.</source>
        <translation>Les fichiers téléchargés occupent %1 sur cet ordinateur.</translation>
    </message>
    <message>
        <source>E-mail address:</source>
        <translation>Adresse e-mail :</translation>
    </message>
    <message>
        <source>FUSE is not available</source>
        <translation>FUSE n’est pas disponible</translation>
    </message>
    <message>
        <source>File Name cannot contain any of these characters \/:*?"&lt;&gt;|</source>
        <translation>Un nom de fichier ne peut contenir aucun de ces caractères : \/:*?"&lt;&gt;|</translation>
    </message>
    <message>
        <source>Files to download: %1 · %2 left</source>
        <translation>Fichiers à télécharger : %1 · reste %2</translation>
    </message>
    <message>
        <source>Files to upload: %1 · %2 left</source>
        <translation>Fichiers à envoyer : %1 · reste %2</translation>
    </message>
    <message>
        <source>Folder:</source>
        <translation>Dossier :</translation>
    </message>
    <message>
        <source>For 1 day</source>
        <translation>Pendant 1 jour</translation>
    </message>
    <message>
        <source>For 1 week</source>
        <translation>Pendant 1 semaine</translation>
    </message>
    <message>
        <source>For 30 days</source>
        <translation>Pendant 30 jours</translation>
    </message>
    <message>
        <source>For 4 hours</source>
        <translation>Pendant 4 heures</translation>
    </message>
    <message>
        <source>General</source>
        <translation>Général</translation>
    </message>
    <message>
        <source>Invalid path</source>
        <translation>Chemin non valide</translation>
    </message>
    <message>
        <source>Keep downloaded files:</source>
        <translation>Conserver les fichiers téléchargés :</translation>
    </message>
    <message>
        <source>Language:</source>
        <translation>Langue :</translation>
    </message>
    <message>
        <source>Lock failed</source>
        <translation>Échec du verrouillage</translation>
    </message>
    <message>
        <source>Log…</source>
        <translation>Journal…</translation>
    </message>
    <message>
        <source>Measuring the downloaded files…</source>
        <translation>Mesure des fichiers téléchargés…</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Nom</translation>
    </message>
    <message>
        <source>No shares</source>
        <translation>Aucun partage</translation>
    </message>
    <message>
        <source>None chosen</source>
        <translation>Aucun choisi</translation>
    </message>
    <message>
        <source>Not signed in</source>
        <translation>Non connecté</translation>
    </message>
    <message>
        <source>Ok</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Open Log Folder</source>
        <translation>Ouvrir le dossier des journaux</translation>
    </message>
    <message>
        <source>Open Varnholt Drive</source>
        <translation>Ouvrir le lecteur Varnholt</translation>
    </message>
    <message>
        <source>Open Web Client</source>
        <translation>Ouvrir le client web</translation>
    </message>
    <message>
        <source>Password:</source>
        <translation>Mot de passe :</translation>
    </message>
    <message>
        <source>Pause Transfers</source>
        <translation>Suspendre les transferts</translation>
    </message>
    <message>
        <source>Please choose a different name</source>
        <translation>Veuillez choisir un autre nom</translation>
    </message>
    <message>
        <source>Please wait until the file is uploaded on server and then try again.</source>
        <translation>Veuillez attendre que le fichier soit envoyé au serveur, puis réessayez.</translation>
    </message>
    <message>
        <source>Preferences…</source>
        <translation>Préférences…</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Progression</translation>
    </message>
    <message>
        <source>Quit Varnholt</source>
        <translation>Quitter Varnholt</translation>
    </message>
    <message>
        <source>Screenshots</source>
        <translation>Captures d’écran</translation>
    </message>
    <message>
        <source>Screenshots are saved in this folder of the drive:</source>
        <translation>Les captures d’écran sont enregistrées dans ce dossier du lecteur :</translation>
    </message>
    <message>
        <source>Shares</source>
        <translation>Partages</translation>
    </message>
    <message>
        <source>Sign In</source>
        <translation>Se connecter</translation>
    </message>
    <message>
        <source>Sign In…</source>
        <translation>Se connecter…</translation>
    </message>
    <message>
        <source>Sign Out</source>
        <translation>Se déconnecter</translation>
    </message>
    <message>
        <source>Sign Out…</source>
        <translation>Se déconnecter…</translation>
    </message>
    <message>
        <source>Sign in to %1</source>
        <translation>Se connecter à %1</translation>
    </message>
    <message>
        <source>Sign out of %1?</source>
        <translation>Se déconnecter de %1 ?</translation>
    </message>
    <message>
        <source>Sign-in refused: please sign in again</source>
        <translation>Connexion refusée : veuillez vous reconnecter</translation>
    </message>
    <message>
        <source>Signed in as %1</source>
        <translation>Connecté en tant que %1</translation>
    </message>
    <message>
        <source>Signed in as:</source>
        <translation>Connecté en tant que :</translation>
    </message>
    <message>
        <source>Signing in…</source>
        <translation>Connexion en cours…</translation>
    </message>
    <message>
        <source>Signing out removes the drive and deletes the downloaded files from this computer.</source>
        <translation>La déconnexion retire le lecteur et supprime les fichiers téléchargés de cet ordinateur.</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Taille</translation>
    </message>
    <message>
        <source>Some changes are not uploaded yet. Try again once every file is up to date.</source>
        <translation>Certaines modifications ne sont pas encore envoyées. Réessayez quand tous les fichiers seront à jour.</translation>
    </message>
    <message>
        <source>Start %1 when I log in</source>
        <translation>Démarrer %1 à l’ouverture de session</translation>
    </message>
    <message>
        <source>Start at login</source>
        <translation>Démarrage à l’ouverture de session</translation>
    </message>
    <message>
        <source>The autostart entry cannot be removed.</source>
        <translation>L’entrée de démarrage automatique ne peut pas être supprimée.</translation>
    </message>
    <message>
        <source>The autostart entry cannot be written.</source>
        <translation>L’entrée de démarrage automatique ne peut pas être écrite.</translation>
    </message>
    <message>
        <source>The e-mail address or the password is wrong (U101). Check both and try again.</source>
        <translation>L’adresse e-mail ou le mot de passe est incorrect (U101). Vérifiez-les et réessayez.</translation>
    </message>
    <message>
        <source>The main log of today; new lines appear as they are written.</source>
        <translation>Le journal principal du jour ; les nouvelles lignes apparaissent dès leur écriture.</translation>
    </message>
    <message>
        <source>The service did not complete the sign-in. Trying again every minute.</source>
        <translation>Le service n’a pas terminé la connexion. Nouvel essai chaque minute.</translation>
    </message>
    <message>
        <source>The service does not accept this computer (U107). Ask your administrator to allow it, then sign in again.</source>
        <translation>Le service n’accepte pas cet ordinateur (U107). Demandez à votre administrateur de l’autoriser, puis reconnectez-vous.</translation>
    </message>
    <message>
        <source>The service ordered the data of this computer to be deleted. Sign in again to start afresh.</source>
        <translation>Le service a ordonné la suppression des données de cet ordinateur. Reconnectez-vous pour repartir de zéro.</translation>
    </message>
    <message>
        <source>The service refused the sign-in: %1</source>
        <translation>Le service a refusé la connexion : %1</translation>
    </message>
    <message>
        <source>Transfers paused</source>
        <translation>Transferts en pause</translation>
    </message>
    <message>
        <source>Transfers…</source>
        <translation>Transferts…</translation>
    </message>
    <message>
        <source>Unable to mount drive</source>
        <translation>Impossible de monter le lecteur</translation>
    </message>
    <message>
        <source>Until I clear them</source>
        <translation>Jusqu’à ce que je les supprime</translation>
    </message>
    <message>
        <source>Upload</source>
        <translation>Envoi</translation>
    </message>
    <message>
        <source>Upload new screenshots to the drive</source>
        <translation>Envoyer les nouvelles captures d’écran sur le lecteur</translation>
    </message>
    <message>
        <source>Varnholt needs FUSE: install the package fuse3.</source>
        <translation>Varnholt a besoin de FUSE : installez le paquet fuse3.</translation>
    </message>
    <message>
        <source>You can't move files between shares.</source>
        <translation>Impossible de déplacer des fichiers entre partages.</translation>
    </message>
    <message>
        <source>You cannot save screenshoots in a readonly folder. Please select another location!</source>
        <translation>Impossible d’enregistrer des captures d’écran dans un dossier en lecture seule. Veuillez choisir un autre emplacement !</translation>
    </message>
    <message>
        <source>You do not have permissions to alter items in read only share.</source>
        <translation>Vous n’avez pas le droit de modifier des éléments d’un partage en lecture seule.</translation>
    </message>
</context>
</TS>
