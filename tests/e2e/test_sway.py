#!/usr/bin/python3
"""End-to-end on sway 1.7 with waybar, Wayland all the way but for Tidewell itself
(Xwayland): the tray items each with their own Id, a left click on each opening its
popup under the icon, floating panels that float clear of each other on every
workspace and above a tiled window, Ctrl+drag moving a panel for good.

Usage: test_sway.py <tidewell binary>   (as a user: sway refuses root)
"""
import os
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from sway_desktop import SwayDesktop  # noqa: E402

APP = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else None
SHOTS = sys.argv[2] if len(sys.argv) > 2 else None
WIDGETS = ("Pomodoro", "Tasks", "Habits")


class OnSway(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sway = SwayDesktop()
        cls.start()

    @classmethod
    def start(cls):
        cls.sway.launch(APP)
        os.environ.update({k: cls.sway.app_env[k]
                           for k in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS")})
        import accessibility
        cls.a11y = accessibility
        cls.root = accessibility.application("Tidewell")

    @classmethod
    def tearDownClass(cls):
        cls.sway.close()

    def sni_ids(self):
        out = self.sway.run(["gdbus", "call", "--session", "--dest",
                             "org.kde.StatusNotifierWatcher", "--object-path",
                             "/StatusNotifierWatcher", "--method",
                             "org.freedesktop.DBus.Properties.Get",
                             "org.kde.StatusNotifierWatcher",
                             "RegisteredStatusNotifierItems"]).stdout
        ids = []
        for item in out.split("'")[1::2]:
            service, _, path = item.partition("/")
            got = self.sway.run(["gdbus", "call", "--session", "--dest", service,
                                 "--object-path", "/" + path, "--method",
                                 "org.freedesktop.DBus.Properties.Get",
                                 "org.kde.StatusNotifierItem", "Id"]).stdout
            ids.extend(got.split("'")[1::2])
        return sorted(ids)

    def test_1_tray_items_and_popups(self):
        a11y, sway = self.a11y, self.sway
        for widget in WIDGETS:
            a11y.switch_on(a11y.find(self.root, widget + " in status bar"))
        self.assertTrue(wait_for(lambda: self.sni_ids() == [
            "tidewell-habits", "tidewell-pomodoro", "tidewell-tasks"], 10), self.sni_ids())
        icons = sway.tray_icons(3)
        self.assertTrue(icons, "three icons did not show in waybar")
        opened = []
        for x, y in icons:
            sway.click(x, y)
            shown = wait_for(lambda: [w for w in WIDGETS if (sway.window(w) or {})
                                      .get("visible")], 5)
            self.assertTrue(shown, "no popup for the icon at %d,%d" % (x, y))

            def gap():
                # From the icon to the nearest edge of the popup, below the bar.
                popup = sway.window(shown[0])["rect"]
                return max(popup["x"] - x, x - (popup["x"] + popup["width"]), popup["y"] - y, 0)
            # Sway shows it centred first; it moves under the icon at once.
            self.assertTrue(wait_for(lambda: gap() <= 48 and sway.window(shown[0])["rect"]["y"] >= 30,
                                     3), (shown[0], sway.window(shown[0])))
            popup = sway.window(shown[0])["rect"]
            if SHOTS and shown[0] == "Pomodoro":
                time.sleep(0.4)
                sway.screenshot().crop((popup["x"] - 40, 0, 1024, popup["y"] + popup["height"] + 12)) \
                    .save(os.path.join(SHOTS, "sway-popup.png"))
            opened.append(shown[0])
            sway.click(x, y)  # closes it again
            self.assertTrue(wait_for(lambda: not (sway.window(shown[0]) or {}).get("visible"),
                                     5), "the popup did not close")
        self.assertEqual(sorted(opened), sorted(WIDGETS))

    def test_2_panels(self):
        a11y, sway = self.a11y, self.sway
        for widget in WIDGETS:
            a11y.switch_on(a11y.find(self.root, widget + " floating"))
        self.assertTrue(wait_for(lambda: all(
            (sway.window(w) or {}).get("sticky") for w in WIDGETS), 10), sway.windows())
        rects = [sway.window(w)["rect"] for w in WIDGETS]
        for i, a in enumerate(rects):
            self.assertTrue(sway.window(WIDGETS[i])["floating"])
            for b in rects[i + 1:]:
                apart = (a["x"] + a["width"] <= b["x"] or b["x"] + b["width"] <= a["x"] or
                         a["y"] + a["height"] <= b["y"] or b["y"] + b["height"] <= a["y"])
                self.assertTrue(apart, rects)

        # On another workspace, over another application's window, they stay in view.
        sway.swaymsg("workspace", "2")
        sway.swaymsg("exec", "foot")
        self.assertTrue(wait_for(lambda: (sway.window("foot") or {}).get("focused"), 10),
                        sway.windows())
        for widget in WIDGETS:
            self.assertTrue(sway.window(widget)["visible"], widget)

        # Ctrl+drag moves a panel, and the place holds through a restart.
        rect = sway.window("Tasks")["rect"]
        x, y = rect["x"] + rect["width"] // 2, rect["y"] + rect["height"] // 2
        sway.run(["xdotool", "mousemove", str(x), str(y), "keydown", "ctrl", "mousedown", "1"])
        for step in range(1, 11):
            sway.run(["xdotool", "mousemove", str(x - 8 * step), str(y + 6 * step)])
            time.sleep(0.05)
        sway.run(["xdotool", "mouseup", "1", "keyup", "ctrl"])
        self.assertTrue(wait_for(lambda: sway.window("Tasks")["rect"]["x"] <= rect["x"] - 60, 5),
                        (rect, sway.window("Tasks")))
        moved = sway.window("Tasks")["rect"]
        time.sleep(0.8)  # saved 0.3 s after the last move
        sway.quit_app()
        type(self).start()
        self.assertTrue(wait_for(lambda: (sway.window("Tasks") or {}).get("sticky"), 10))
        self.assertTrue(wait_for(lambda: sway.window("Tasks")["rect"] == moved, 5),
                        (moved, sway.window("Tasks")))


def main():
    unittest.main(argv=[sys.argv[0], "-v"])


if __name__ == "__main__":
    main()
