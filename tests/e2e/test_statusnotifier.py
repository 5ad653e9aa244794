#!/usr/bin/python3
"""End-to-end on a desktop whose tray speaks StatusNotifierItem over D-Bus (KDE
Plasma, GNOME with AppIndicator, waybar, …), with a stand-in watcher: each widget
is an item of its own (Id and Title), the tooltip carries the live countdown
within half a second of starting, the menu is read over dbusmenu and its items
work, and a click opens the popup where the host says it was clicked, or at the
tray's corner when the host gives no coordinates; never where the pointer was.

Usage: test_statusnotifier.py <tidewell binary>
"""
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import holds, wait_for  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
ITEM = "org.kde.StatusNotifierItem"


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

    def item(self, widget):
        """Places `widget` in the tray; its D-Bus item."""
        import dbus
        self.a11y.switch_on(self.a11y.find(self.root, widget + " in status bar"))
        service, path = self.watcher.stdout.readline().decode().split()
        return dbus.SessionBus().get_object(service, path)

    def popup_geometry(self, title):
        ids = self.desktop.window_ids("^%s$" % title)
        if not ids:
            return None
        out = self.desktop.run(["xdotool", "getwindowgeometry", "--shell", str(ids[0])]).stdout
        g = dict(line.split("=") for line in out.split())
        return int(g["X"]), int(g["Y"]), int(g["WIDTH"]), int(g["HEIGHT"])

    def test_items_tooltips_menus_and_placement(self):
        import dbus
        items = {w: self.item(w) for w in ("Pomodoro", "Tasks", "Habits")}
        props = {w: dbus.Interface(i, dbus.PROPERTIES_IFACE) for w, i in items.items()}
        # Each item names itself, so trays (and their settings) can tell them apart.
        for widget, p in props.items():
            self.assertEqual(str(p.Get(ITEM, "Id")), "tidewell-" + widget.lower())
            self.assertEqual(str(p.Get(ITEM, "Title")), "Tidewell " + widget)
            self.assertEqual(bool(p.Get(ITEM, "ItemIsMenu")), False)
            self.assertTrue(len(p.Get(ITEM, "IconPixmap")) > 0)
        # A themed name where the desktop's theme has the check mark, else pixmaps only.
        self.assertIn(str(props["Tasks"].Get(ITEM, "IconName")), ("", "object-select-symbolic"))

        # The menu, over dbusmenu, and one of its items used.
        menu = dbus.Interface(dbus.SessionBus().get_object(
            items["Pomodoro"].bus_name, str(props["Pomodoro"].Get(ITEM, "Menu"))),
            "com.canonical.dbusmenu")
        _, layout = menu.GetLayout(0, -1, [])
        labels = [str(child[1].get("label", "")) for child in layout[2]]
        self.assertEqual(labels, ["Show Pomodoro", "History…", "", "Open Tidewell",
                                  "Quit Tidewell"])
        menu.Event(1, "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0))
        self.assertTrue(wait_for(lambda: self.popup_geometry("Pomodoro")), "Show did not open it")

        # The countdown in the tooltip.
        def tooltip():
            tip = props["Pomodoro"].Get(ITEM, "ToolTip")
            return str(tip[2]), str(tip[3])

        self.assertEqual(tooltip(), ("Tidewell Pomodoro", "🍅"))
        start = self.a11y.find(self.root, "Start")
        started = time.monotonic()
        self.a11y.press(start)
        shown = wait_for(lambda: re.fullmatch(r"🍅 2[45]:\d\d", tooltip()[1]), timeout=1.0,
                         interval=0.02)
        elapsed = time.monotonic() - started
        self.assertTrue(shown, "tooltip is %r" % (tooltip(),))
        self.assertLess(elapsed, 0.5, "countdown took %.2f s to appear" % elapsed)
        self.a11y.press(self.a11y.find(self.root, "Pause"))

        # A click the host places: the popup opens next to it (the nearest edge
        # within 48 px), wherever the pointer is.
        self.desktop.run(["xdotool", "key", "Escape"])
        self.assertTrue(wait_for(lambda: not self.popup_geometry("Pomodoro")))
        self.desktop.run(["xdotool", "mousemove", "20", "700"])
        activate = dbus.Interface(items["Habits"], ITEM).Activate
        for x, y in ((1200, 12), (640, 12), (900, 780)):
            activate(x, y)
            self.assertTrue(wait_for(lambda: self.popup_geometry("Habits")), "no popup")
            px, py, w, h = self.popup_geometry("Habits")
            dx = max(px - x, 0, x - (px + w))
            dy = max(py - y, 0, y - (py + h))
            self.assertLessEqual(max(dx, dy), 48, (x, y, px, py, w, h))
            activate(x, y)  # a second click closes it
            self.assertTrue(wait_for(lambda: not self.popup_geometry("Habits")), "not closed")
            # The click that closed it does not open it again (the guard lasts 0.35 s).
            self.assertTrue(holds(lambda: not self.popup_geometry("Habits"), 0.4), "reopened")
        # No coordinates: at the tray's corner (top right without a panel).
        activate(0, 0)
        self.assertTrue(wait_for(lambda: self.popup_geometry("Habits")), "no popup")
        px, py, w, h = self.popup_geometry("Habits")
        self.assertGreater(px + w, 1280 - 48)
        self.assertLess(py, 48)


if __name__ == "__main__":
    main()
