#!/usr/bin/python3
"""End-to-end: the three widgets' tray icons stay legible on a dark or a light
panel: each icon holds pixels far from the panel's own colour, whatever the app's
palette. With a folder given, saves the panel as tray-<panel>.png.

Usage: TIDEWELL_PANEL=dark|light test_tray_icons.py <tidewell binary> [screenshot folder]
(one panel per process: the accessibility bus is the first desktop's for good)
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import SHOTS, TidewellCase, main  # noqa: E402

WIDGETS = ("Habits", "Tasks", "Pomodoro")


def distance(a, b):
    return sum((x - y) ** 2 for x, y in zip(a[:3], b[:3])) ** 0.5


class TrayIcons(TidewellCase):
    panel = os.environ.get("TIDEWELL_PANEL", "dark")

    def test_every_icon_stands_out_from_the_panel(self):
        for widget in WIDGETS:
            self.a11y.switch_on(self.a11y.find(self.root, widget + " in status bar"))
        self.assertTrue(wait_for(lambda: len(self.desktop.tray_icons()) == len(WIDGETS), 20),
                        "expected %d tray icons" % len(WIDGETS))
        self.assertTrue(self.desktop.wait_painted(), "the tray kept changing")
        from PIL import ImageGrab
        screen = ImageGrab.grab(xdisplay=self.desktop.display).convert("RGB")
        icons = sorted(self.desktop.tray_icons())
        for x, y in icons:
            box = list(screen.crop((x - 11, y - 11, x + 11, y + 11)).getdata())
            # The panel shows through most of the icon's square.
            panel = max(set(box), key=box.count)
            farthest = max(distance(p, panel) for p in box)
            self.assertGreater(farthest, 120, "the icon at %d,%d fades into the %s panel"
                               % (x, y, self.panel))
        if SHOTS:
            (x0, _), (x1, _) = icons[0], icons[-1]
            screen.crop((x0 - 14, 0, x1 + 14, 24)).resize(((x1 - x0 + 28) * 3, 72)) \
                .save(os.path.join(SHOTS, "tray-%s.png" % self.panel))


if __name__ == "__main__":
    main()
