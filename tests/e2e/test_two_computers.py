#!/usr/bin/python3
"""End-to-end: two real apps (two HOMEs) signed in to one account of a real
tidewell-server. A habit counted on both within the same half second shows both
counts on both within two seconds, without Sync. With the server stopped for 30 s
while both count, both end with the sum once it is back.

Usage: test_two_computers.py <tidewell binary>; TIDEWELL_SERVER_BINARY names the server.
"""
import os
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from tidewell_server import TidewellServer  # noqa: E402
from desktop import holds, wait_for  # noqa: E402
from tidewell_case import APP, TidewellCase, main  # noqa: E402

SERVER = os.environ.get("TIDEWELL_SERVER_BINARY")


class TwoComputers(TidewellCase):
    @classmethod
    def before_launch(cls):
        cls.server = TidewellServer(SERVER)
        cls.server.add_user()
        cls.token = cls.server.create_token()
        cls.server.start()
        cls.second = None

    @classmethod
    def tearDownClass(cls):
        if cls.second and cls.second.poll() is None:
            cls.second.kill()
        cls.server.stop()
        super().tearDownClass()

    def sign_in(self, root):
        self.sign_in_with_token(root, self.server.base, self.token)

    def start_second(self):
        """The second computer: its own HOME and runtime folder on the same desktop."""
        home = tempfile.mkdtemp(prefix="tidewell-second-")
        env = dict(self.desktop.env, HOME=home, XDG_DATA_HOME=os.path.join(home, "data"),
                   XDG_CONFIG_HOME=os.path.join(home, "config"),
                   XDG_RUNTIME_DIR=tempfile.mkdtemp(prefix="tidewell-run-"))
        type(self).second = subprocess.Popen([APP], env=env, stdout=subprocess.DEVNULL,
                                             stderr=subprocess.DEVNULL)
        return self.a11y.application("Tidewell", pid=self.second.pid)

    @staticmethod
    def counter(pid):
        """Counts "Water" in the app of `pid` through its D-Bus object. Only one app
        owns the well-known name; the other is reached at its own connection."""
        from gi.repository import Gio, GLib
        bus = Gio.bus_get_sync(Gio.BusType.SESSION)

        def ask(dest, path, iface, method, args, reply):
            return bus.call_sync(dest, path, iface, method, args,
                                 GLib.VariantType(reply) if reply else None,
                                 Gio.DBusCallFlags.NONE, 5000, None)
        daemon = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
        names = ask(*daemon, "ListNames", None, "(as)").unpack()[0]
        for name in names:
            if not name.startswith(":"):
                continue
            try:
                owner = ask(*daemon, "GetConnectionUnixProcessID", GLib.Variant("(s)", (name,)),
                            "(u)").unpack()[0]
                if owner != pid:
                    continue
                ask(name, "/com/brenlow/tidewell", "com.brenlow.tidewell.Habits", "Count",
                    GLib.Variant("(s)", ("Water",)), None)
                return lambda: ask(name, "/com/brenlow/tidewell", "com.brenlow.tidewell.Habits",
                                   "Count", GLib.Variant("(s)", ("Water",)), None)
            except GLib.Error:
                continue
        raise AssertionError("no D-Bus connection of process %d counts habits" % pid)

    def shows(self, root, text, timeout):
        def seen():
            try:
                return self.a11y.find(root, text, timeout=0.1) is not None
            except AssertionError:
                return False
        return wait_for(seen, timeout)

    def test_counts_meet_without_sync(self):
        a11y = self.a11y
        first = self.root
        self.sign_in(first)
        # This server keeps versions: the hub offers, and keeps on, staying in step.
        in_step = a11y.find(first, "Keep this computer in step automatically")
        self.assertTrue(a11y.is_checked(in_step))
        switch, icon = self.in_popup(first, "Habits")
        self.add_first_habit(first, "Water", icon)
        self.close_popup(switch, icon)
        a11y.switch_on(a11y.find(first, "Habits floating"))
        a11y.find(first, "0/8")

        second = self.start_second()
        self.sign_in(second)
        a11y.switch_on(a11y.find(second, "Habits floating"))
        a11y.find(second, "0/8", timeout=15)

        # Counted on both within the same half second (finding each app's counter
        # counts once already).
        add_first = self.counter(self.app.pid)
        add_second = self.counter(self.second.pid)
        counted = time.monotonic()
        self.assertTrue(self.shows(first, "2/8", 5) and self.shows(second, "2/8", 5),
                        "both counts did not reach both computers")
        took = time.monotonic() - counted
        print("both counts on both computers after %.2f s" % took)
        self.assertLess(took, 2.0)

        # The server away for 30 s while both count; then both hold the sum.
        self.server.proc.terminate()
        self.server.proc.wait(15)
        add_first()
        add_second()
        a11y.find(first, "3/8")
        a11y.find(second, "3/8")
        # Both keep running and keep their counts through the rest of the outage.
        self.assertTrue(holds(lambda: self.app.poll() is None and self.second.poll() is None
                              and self.shows(first, "3/8", 0) and self.shows(second, "3/8", 0),
                              30, interval=1.0), "a computer lost its count while offline")
        self.server.start()
        self.assertTrue(self.shows(first, "4/8", 60) and self.shows(second, "4/8", 60),
                        "the counts made during the outage did not meet")


if __name__ == "__main__":
    main()
