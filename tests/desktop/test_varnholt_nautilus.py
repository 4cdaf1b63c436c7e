"""The GNOME Files extension against a stand-in client on a real socket."""

import importlib.util
import os
import socket
import sys
import tempfile
import time
import unittest

try:
    import gi

    gi.require_version("Nautilus", "4.0")
    from gi.repository import Gio, GLib
except (ImportError, ValueError):
    print("skipped: python3-nautilus is not installed")
    sys.exit(77)

EXTENSION = os.environ.get("VH_NAUTILUS_EXTENSION") or os.path.join(
    os.path.dirname(__file__), "..", "..", "data", "nautilus", "varnholt-nautilus.py")


def load_extension():
    spec = importlib.util.spec_from_file_location("varnholt_nautilus", EXTENSION)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class FakeFile:
    """What the extension uses of Nautilus.FileInfo."""

    def __init__(self, path, directory=False):
        self.path = path
        self.directory = directory
        self.shown = True
        self.emblems = []
        self.invalidated = 0

    def get_uri_scheme(self):
        return "file"

    def get_location(self):
        return Gio.File.new_for_path(self.path)

    def is_directory(self):
        return self.directory

    def is_gone(self):
        return False

    def add_emblem(self, name):
        self.emblems.append(name)

    def invalidate_extension_info(self):
        self.invalidated += 1


class FakeClient:
    """The client's end of the socket: records lines, says what it is told."""

    def __init__(self, runtime):
        folder = os.path.join(runtime, "Varnholt")
        os.makedirs(folder, mode=0o700, exist_ok=True)
        self.server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.server.bind(os.path.join(folder, "findertalk"))
        self.server.listen()
        self.server.setblocking(False)
        self.peer = None
        self.lines = []
        self.inbox = b""

    def poll(self):
        if self.peer is None:
            try:
                self.peer, _ = self.server.accept()
            except BlockingIOError:
                return
            self.peer.setblocking(False)
        try:
            self.inbox += self.peer.recv(65536)
        except BlockingIOError:
            return
        *lines, self.inbox = self.inbox.split(b"\n")
        # The instance id is the extension's business.
        self.lines += [line.decode().split(":", 1)[1] for line in lines]

    def say(self, *lines):
        for line in lines:
            self.peer.sendall((line + "\n").encode())

    def drop(self):
        self.peer.close()
        self.peer = None
        self.lines = []

    def close(self):
        if self.peer:
            self.peer.close()
        os.unlink(self.server.getsockname())
        self.server.close()


class ExtensionTest(unittest.TestCase):
    def setUp(self):
        self.runtime = tempfile.TemporaryDirectory()
        os.environ["XDG_RUNTIME_DIR"] = self.runtime.name
        self.mount = os.path.join(self.runtime.name, "Varnholt drive")
        self.module = load_extension()
        self.module.RETRY_SECONDS = 1
        self.attributes = {}
        self.module.read_attribute = lambda path, name: self.attributes.get((path, name))
        self.module.still_shown = lambda file: file.shown
        self.client = None

    def tearDown(self):
        if self.client:
            self.client.close()
        self.runtime.cleanup()

    def wait_until(self, condition):
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            GLib.MainContext.default().iteration(False)
            if self.client:
                self.client.poll()
            if condition():
                return
            time.sleep(0.01)
        self.fail("timed out; the client received %r" % (self.client and self.client.lines))

    def connect(self, extension, *greeting):
        self.client = self.client or FakeClient(self.runtime.name)
        self.wait_until(lambda: "hello:" in self.client.lines)
        self.client.say("hej:" + self.mount, *greeting)
        self.wait_until(lambda: extension.mount == self.mount)

    def drive_file(self, relative, directory=False):
        return FakeFile(os.path.join(self.mount, relative), directory)

    def shown(self, extension, file):
        file.emblems = []
        extension.update_file_info(file)
        return file.emblems

    def test_badges_items_of_the_drive_and_shows_the_states_pushed(self):
        # No client yet: nothing fails, and the item waits for the drive's path.
        extension = self.module.VarnholtExtension()
        report = self.drive_file("Team/report.pdf")
        self.assertEqual(self.shown(extension, report), [])
        self.connect(extension)
        folder = os.path.dirname(report.path)
        self.wait_until(lambda: "badge:" + report.path in self.client.lines)
        self.assertEqual(self.client.lines,
                         ["hello:", "observe:" + folder, "badge:" + report.path])

        # Outside the drive, the drive's root and a second look ask nothing.
        self.shown(extension, FakeFile(self.mount + " 2/other.txt"))
        self.shown(extension, FakeFile(self.mount, True))
        self.shown(extension, report)
        team = self.drive_file("Team", True)
        locked = self.drive_file("Team/plan.odt")
        self.attributes[(locked.path, "lockstatus")] = b"\x02"
        self.shown(extension, team)
        self.shown(extension, locked)
        self.wait_until(lambda: "badge:" + locked.path in self.client.lines)
        self.assertEqual(self.client.lines[3:],
                         ["observe:" + self.mount, "badge:" + team.path, "badge:" + locked.path])

        self.client.say("overlay(2):" + report.path, "overlay(5):" + team.path,
                        "overlay(1):" + locked.path, "overlay(x):" + report.path)
        self.wait_until(lambda: team.invalidated and locked.invalidated)
        self.assertEqual(report.invalidated, 1)
        self.assertEqual(self.shown(extension, report), ["varnholt-online"])
        self.assertEqual(self.shown(extension, team), ["varnholt-offline", "varnholt-syncing"])
        self.assertEqual(self.shown(extension, locked),
                         ["varnholt-downloaded", "varnholt-locked-other"])

    def test_a_client_that_comes_back_is_asked_again(self):
        extension = self.module.VarnholtExtension()
        self.connect(extension)
        report = self.drive_file("Team/report.pdf")
        self.shown(extension, report)
        self.client.say("overlay(1):" + report.path)
        self.wait_until(lambda: report.invalidated == 1)

        self.client.drop()
        self.wait_until(lambda: report.invalidated == 2)
        self.assertEqual(self.shown(extension, report), [])
        self.connect(extension)
        self.wait_until(lambda: "badge:" + report.path in self.client.lines)

    def test_folders_no_view_shows_are_unobserved(self):
        extension = self.module.VarnholtExtension()
        self.connect(extension)
        old, new = self.drive_file("Team/a/old.txt"), self.drive_file("Team/b/new.txt")
        self.shown(extension, old)
        self.shown(extension, new)
        old.shown = False
        extension.sweep()
        self.wait_until(lambda: "unobserve:" + os.path.dirname(old.path) in self.client.lines)
        self.assertNotIn("unobserve:" + os.path.dirname(new.path), self.client.lines)
        # Shown again later, it is badged again.
        old.shown = True
        self.shown(extension, old)
        self.wait_until(lambda: self.client.lines.count("badge:" + old.path) == 2)

    def menu(self, items):
        self.assertEqual(len(items), 1)
        return {item.props.label: item for item in items[0].props.menu.get_items()}

    def test_menus_follow_the_item_its_lock_and_the_language(self):
        extension = self.module.VarnholtExtension()
        self.connect(extension, "lang:de_DE")
        share, folder = self.drive_file("Team", True), self.drive_file("Team/Docs", True)
        mine, theirs = self.drive_file("Team/a.txt"), self.drive_file("Team/b.txt")
        self.attributes[(mine.path, "writeaccess")] = b"1"
        self.attributes[(theirs.path, "lockstatus")] = b"\x02"
        for file in (share, folder, mine, theirs):
            self.shown(extension, file)
        self.client.say("overlay(4):" + folder.path, "overlay(1):" + theirs.path)
        self.wait_until(lambda: folder.invalidated and theirs.invalidated)

        self.assertEqual(list(self.menu(extension.get_file_items([share]))),
                         ["Im Web-Client öffnen", "Offline verfügbar halten",
                          "Jetzt herunterladen"])
        self.assertEqual(list(self.menu(extension.get_file_items([folder]))),
                         ["Nur online", "Jetzt herunterladen"])
        mine_menu = self.menu(extension.get_file_items([mine]))
        self.assertEqual(list(mine_menu), ["Öffentlichen Link kopieren",
                                           "Link per E-Mail senden", "Sperren",
                                           "Jetzt herunterladen"])
        theirs_menu = self.menu(extension.get_file_items([theirs]))
        self.assertFalse(theirs_menu["Von anderem Benutzer gesperrt"].props.sensitive)
        self.assertNotIn("Jetzt herunterladen", theirs_menu)
        self.assertEqual(extension.get_file_items([mine, FakeFile("/elsewhere/x.txt")]), [])

        mine_menu["Sperren"].activate()
        self.menu(extension.get_file_items([share]))["Im Web-Client öffnen"].activate()
        self.menu(extension.get_file_items([mine, folder]))["Jetzt herunterladen"].activate()
        expected = ["togglelock:" + mine.path, "shareashare:" + share.path,
                    "downloadfile:" + mine.path, "downloadfolder:" + folder.path]
        self.wait_until(lambda: self.client.lines[-4:] == expected)

    def test_background_offers_a_new_share_and_refresh_when_asked(self):
        extension = self.module.VarnholtExtension()
        self.connect(extension)
        root, docs = FakeFile(self.mount, True), self.drive_file("Team/Docs", True)
        self.assertEqual(list(self.menu(extension.get_background_items(root))), ["New share"])
        self.assertEqual(extension.get_background_items(docs), [])
        self.assertEqual(extension.get_background_items(FakeFile("/elsewhere", True)), [])

        self.client.say("option:showrefresh")
        self.wait_until(lambda: extension.show_refresh)
        self.menu(extension.get_background_items(root))["Refresh"].activate()
        self.menu(extension.get_background_items(docs))["Refresh"].activate()
        expected = ["refresh:", "refresh:" + os.path.join(self.mount, "Team")]
        self.wait_until(lambda: self.client.lines[-2:] == expected)


if __name__ == "__main__":
    unittest.main()
