"""Varnholt in GNOME Files: emblems and commands for the items of the drive.

The running client answers on its socket, one UTF-8 line per message:
"<instance>:<command>:<parameter>" goes out, "<command>:<parameter>" comes
back. The client pushes "overlay(N):<path>" whenever a badged item changes.
"""

import os
import socket

import gi

gi.require_version("Nautilus", "4.0")
from gi.repository import GLib, GObject, Nautilus  # noqa: E402

RETRY_SECONDS = 5
SWEEP_SECONDS = 30
ATTRIBUTE_PREFIX = "user.com.varnholt.clouddrive-osx."

# Overlay states: 1 downloaded, 2 online only, 3 transferring, 4 kept
# offline, 5 kept offline with transfers pending.
STATE_EMBLEMS = {
    1: ["varnholt-downloaded"],
    2: ["varnholt-online"],
    3: ["varnholt-syncing"],
    4: ["varnholt-offline"],
    5: ["varnholt-offline", "varnholt-syncing"],
}
# Lock states: 1 by this user, 2 by another user.
LOCK_EMBLEMS = {1: "varnholt-locked", 2: "varnholt-locked-other"}

LABELS = {
    "en": {
        "menu": "Varnholt",
        "link": "Copy public link",
        "email": "E-mail link",
        "lock": "Lock",
        "unlock": "Unlock",
        "locked": "Locked by another user",
        "offline": "Keep offline",
        "online": "Online only",
        "download": "Download now",
        "web": "Open in web client",
        "newshare": "New share",
        "refresh": "Refresh",
    },
    "de": {
        "menu": "Varnholt",
        "link": "Öffentlichen Link kopieren",
        "email": "Link per E-Mail senden",
        "lock": "Sperren",
        "unlock": "Entsperren",
        "locked": "Von anderem Benutzer gesperrt",
        "offline": "Offline verfügbar halten",
        "online": "Nur online",
        "download": "Jetzt herunterladen",
        "web": "Im Web-Client öffnen",
        "newshare": "Neue Freigabe",
        "refresh": "Aktualisieren",
    },
}


def socket_path():
    runtime = os.environ.get("XDG_RUNTIME_DIR") or "/tmp/varnholt-%d" % os.getuid()
    return os.path.join(runtime, "Varnholt", "findertalk")


def local_path(file):
    """The file's path, or None when it has none the protocol can carry."""
    if file.get_uri_scheme() != "file":
        return None
    location = file.get_location()
    path = location.get_path() if location else None
    return path if path and "\n" not in path else None


def read_attribute(path, name):
    """One of the drive's status attributes as bytes; None where it has none."""
    try:
        return os.getxattr(path, ATTRIBUTE_PREFIX + name)
    except OSError:
        return None


def still_shown(file):
    # Our dictionary holds one reference; Nautilus holds the others while a
    # view shows the item.
    return not file.is_gone() and file.__grefcount__ > 1


class Channel:
    """The connection to the client; reconnects quietly while it is away."""

    def __init__(self, path, on_line, on_connected, on_disconnected):
        self.instance = "nautilus-%d" % os.getpid()
        self._path = path
        self._on_line = on_line
        self._on_connected = on_connected
        self._on_disconnected = on_disconnected
        self._sock = None
        self._read_watch = 0
        self._write_watch = 0
        self._retry = 0
        self._inbox = b""
        self._outbox = b""

    def connect(self):
        self._retry = 0
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            sock.settimeout(1)
            sock.connect(self._path)
        except OSError:
            sock.close()
            self._schedule_retry()
            return False
        sock.setblocking(False)
        self._sock = sock
        self._read_watch = GLib.io_add_watch(
            sock.fileno(), GLib.PRIORITY_DEFAULT,
            GLib.IO_IN | GLib.IO_HUP | GLib.IO_ERR, self._readable)
        self.send("hello", "")
        self._on_connected()
        return False

    def send(self, command, parameter):
        if self._sock:
            line = "%s:%s:%s\n" % (self.instance, command, parameter)
            self._outbox += line.encode()
            self._flush()

    def close(self):
        if not self._sock:
            return
        for watch in (self._read_watch, self._write_watch):
            if watch:
                GLib.source_remove(watch)
        self._read_watch = self._write_watch = 0
        self._sock.close()
        self._sock = None
        self._inbox = self._outbox = b""
        self._on_disconnected()
        self._schedule_retry()

    def _schedule_retry(self):
        if not self._retry:
            self._retry = GLib.timeout_add_seconds(RETRY_SECONDS, self.connect)

    def _flush(self):
        try:
            sent = self._sock.send(self._outbox)
        except BlockingIOError:
            sent = 0
        except OSError:
            self.close()
            return
        self._outbox = self._outbox[sent:]
        if self._outbox and not self._write_watch:
            self._write_watch = GLib.io_add_watch(
                self._sock.fileno(), GLib.PRIORITY_DEFAULT, GLib.IO_OUT, self._writable)

    def _writable(self, *_):
        self._write_watch = 0  # this source ends by returning False
        if self._sock:
            self._flush()
        return False

    def _readable(self, *_):
        try:
            data = self._sock.recv(65536)
        except BlockingIOError:
            return True
        except OSError:
            data = b""
        if not data:
            self.close()
            return False
        self._inbox += data
        *lines, self._inbox = self._inbox.split(b"\n")
        for line in lines:
            command, _, parameter = line.decode("utf-8", "replace").partition(":")
            self._on_line(command, parameter.strip())
        return True


class VarnholtExtension(GObject.GObject, Nautilus.InfoProvider, Nautilus.MenuProvider):
    def __init__(self):
        super().__init__()
        self.mount = None
        self.language = "en"
        self.show_refresh = False
        self.states = {}  # path -> overlay state the client sent
        self.files = {}  # path -> FileInfo shown inside the drive
        self.unplaced = {}  # path -> FileInfo seen before the client named the drive
        self.observed = set()
        self.badged = set()
        self.channel = Channel(
            socket_path(), self._received, self._connected, self._disconnected)
        self.channel.connect()
        GLib.timeout_add_seconds(SWEEP_SECONDS, self.sweep)

    # ---- Emblems --------------------------------------------------------

    def update_file_info(self, file):
        path = local_path(file)
        if path is None:
            return
        if self.mount is None:
            self.unplaced[path] = file
        elif self._inside(path):
            self._show(path, file)
            for emblem in self._emblems(path, file):
                file.add_emblem(emblem)

    def _emblems(self, path, file):
        emblems = list(STATE_EMBLEMS.get(self.states.get(path, 0), []))
        lock = self._lock(path, file)
        if lock in LOCK_EMBLEMS:
            emblems.append(LOCK_EMBLEMS[lock])
        return emblems

    def _lock(self, path, file):
        if file.is_directory():
            return 0
        value = read_attribute(path, "lockstatus")
        return value[0] if value else 0

    def _show(self, path, file):
        self.files[path] = file
        folder = os.path.dirname(path)
        if folder not in self.observed:
            self.observed.add(folder)
            self.channel.send("observe", folder)
        if path not in self.badged:
            self.badged.add(path)
            self.channel.send("badge", path)

    def _inside(self, path):
        return path.startswith(self.mount + "/")

    def _received(self, command, parameter):
        if command == "hej":
            self._place(os.path.normpath(parameter))
        elif command == "lang":
            self.language = parameter
        elif command == "option" and parameter == "showrefresh":
            self.show_refresh = True
        elif command.startswith("overlay(") and command.endswith(")"):
            try:
                self._set_state(parameter, int(command[len("overlay("):-1]))
            except ValueError:
                pass

    def _set_state(self, path, state):
        self.states[path] = state
        file = self.files.get(path)
        if file is not None:
            file.invalidate_extension_info()

    def _place(self, mount):
        """Asks for the items shown so far now that the drive is known."""
        self.mount = mount
        pending = {**self.files, **self.unplaced}
        self.files.clear()
        self.unplaced.clear()
        for path, file in pending.items():
            if self._inside(path) and not file.is_gone():
                self._show(path, file)

    def _connected(self):
        self.show_refresh = False

    def _disconnected(self):
        # A client that comes back knows nothing of this instance; until it
        # does, the items show no state.
        shown = list(self.files.values())
        self.unplaced.update(self.files)
        self.files.clear()
        self.mount = None
        self.states.clear()
        self.observed.clear()
        self.badged.clear()
        for file in shown:
            file.invalidate_extension_info()

    def sweep(self):
        """Forgets the items no view shows and the folders left without any."""
        for table in (self.files, self.unplaced):
            for path, file in list(table.items()):
                if not still_shown(file) or local_path(file) != path:
                    del table[path]
                    self.states.pop(path, None)
                    self.badged.discard(path)
        shown_folders = {os.path.dirname(path) for path in self.files}
        for folder in self.observed - shown_folders:
            self.observed.discard(folder)
            self.channel.send("unobserve", folder)
        return True

    # ---- Menus ----------------------------------------------------------

    def get_file_items(self, files):
        paths = [local_path(file) for file in files]
        if self.mount is None or not all(p and self._inside(p) for p in paths):
            return []
        if len(files) == 1:
            entries = self._item_entries(paths[0], files[0])
        else:
            entries = self._download_entries(paths, files)
        return self._menu("items", entries)

    def get_background_items(self, folder):
        path = local_path(folder)
        if self.mount is None or path is None:
            return []
        entries = []
        if path == self.mount:
            entries.append(("newshare", "newshare", [("newshare", "")]))
        elif self._inside(path) and path == self._share_of(path):
            entries.append(("web", "web", [("shareashare", path)]))
        elif not self._inside(path):
            return []
        entries += self._refresh_entries(path)
        return self._menu("background", entries)

    def _item_entries(self, path, file):
        state = self.states.get(path, 0)
        entries = []
        if path == self._share_of(path):
            entries.append(("web", "web", [("shareashare", path)]))
        if file.is_directory():
            sync = "online" if state in (4, 5) else "offline"
            entries.append(("sync", sync, [("togglesync", path)]))
            entries.append(("download", "download", [("downloadfolder", path)]))
        else:
            entries.append(("link", "link", [("createlink", path)]))
            entries.append(("email", "email", [("emaillink", path)]))
            entries += self._lock_entries(path, file)
            if state != 1:
                entries.append(("download", "download", [("downloadfile", path)]))
        return entries + self._refresh_entries(path)

    def _lock_entries(self, path, file):
        lock = self._lock(path, file)
        if lock == 2:
            return [("lock", "locked", [])]
        if read_attribute(path, "writeaccess") == b"0":
            return []
        return [("lock", "unlock" if lock == 1 else "lock", [("togglelock", path)])]

    def _download_entries(self, paths, files):
        commands = [
            ("downloadfolder" if file.is_directory() else "downloadfile", path)
            for path, file in zip(paths, files)
        ]
        return [("download", "download", commands)]

    def _refresh_entries(self, path):
        if not self.show_refresh:
            return []
        # The drive's root logs in again; a share catches up.
        target = "" if path == self.mount else self._share_of(path)
        return [("refresh", "refresh", [("refresh", target)])]

    def _share_of(self, path):
        first = path[len(self.mount) + 1:].split("/", 1)[0]
        return self.mount + "/" + first

    def _menu(self, where, entries):
        if not entries:
            return []
        labels = LABELS.get(self.language[:2].lower(), LABELS["en"])
        top = Nautilus.MenuItem(name="Varnholt::%s" % where, label=labels["menu"])
        submenu = Nautilus.Menu()
        top.set_submenu(submenu)
        for key, label, commands in entries:
            item = Nautilus.MenuItem(
                name="Varnholt::%s::%s" % (where, key),
                label=labels[label],
                sensitive=bool(commands),
            )
            item.connect("activate", self._activate, commands)
            submenu.append_item(item)
        return [top]

    def _activate(self, _item, commands):
        for command, parameter in commands:
            self.channel.send(command, parameter)
