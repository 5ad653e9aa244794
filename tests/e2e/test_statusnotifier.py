#!/usr/bin/python3
"""End-to-end on a desktop whose tray speaks StatusNotifierItem over D-Bus (most
Linux desktops): the item's tooltip carries the live countdown within half a
second of starting, and the host's Activate call opens the popup.

Usage: test_statusnotifier.py <tidewell binary>
"""
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))


class StatusNotifierTray(TidewellCase):
    tray = False

    @classmethod
    def before_launch(cls):
        cls.watcher = subprocess.Popen(["/usr/bin/python3", "-u", os.path.join(HERE, "sni_watcher.py")],
                                       env=cls.desktop.env, stdout=subprocess.PIPE)
        assert cls.watcher.stdout.readline().strip() == b"ready"

    @classmethod
    def tearDownClass(cls):
        cls.watcher.terminate()
        cls.watcher.wait(10)
        super().tearDownClass()

    def test_countdown_tooltip_and_activation(self):
        import dbus
        self.a11y.switch_on(self.a11y.find(self.root, "Pomodoro in status bar"))
        service, path = self.watcher.stdout.readline().decode().split()
        item = dbus.SessionBus().get_object(service, path)
        props = dbus.Interface(item, dbus.PROPERTIES_IFACE)

        def tooltip():
            return str(props.Get("org.kde.StatusNotifierItem", "ToolTip")[2])

        self.assertEqual(tooltip(), "🍅")
        dbus.Interface(item, "org.kde.StatusNotifierItem").Activate(0, 0)
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^Pomodoro$")), "no popup")
        start = self.a11y.find(self.root, "Start")
        started = time.monotonic()
        self.a11y.press(start)
        shown = wait_for(lambda: re.fullmatch(r"🍅 2[45]:\d\d", tooltip()), timeout=1.0,
                         interval=0.02)
        elapsed = time.monotonic() - started
        self.assertTrue(shown, "tooltip is %r" % tooltip())
        self.assertLess(elapsed, 0.5, "countdown took %.2f s to appear" % elapsed)


if __name__ == "__main__":
    main()
