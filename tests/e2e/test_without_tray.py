#!/usr/bin/python3
"""End-to-end: a desktop with no tray at all, as stock GNOME is. The hub says so and
how to get one, and everything the popups offer is reachable from the hub alone:
each widget's full view opens in a window of its own, where the timer is started
and paused, a habit counted and a task added.

Usage: test_without_tray.py <tidewell binary>
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402


NOTE = ("This desktop shows no system tray, so status bar items stay hidden. Open a widget "
        "here instead, or add a tray: on GNOME, install gnome-shell-extension-appindicator, "
        "log in again and turn on AppIndicator and KStatusNotifierItem Support in Extensions.")


class WithoutATray(TidewellCase):
    tray = False

    def open_window(self, name):
        self.a11y.press(self.a11y.find(self.root, "Open " + name, role="push button"))
        title = "^%s — Tidewell$" % name
        self.assertTrue(wait_for(lambda: self.desktop.window_ids(title)), "no %s window" % name)
        return self.desktop.window_ids(title)[0]

    def test_everything_from_the_hub(self):
        a11y, desktop = self.a11y, self.desktop
        a11y.find(self.root, NOTE, role="label")

        self.open_window("Pomodoro")
        a11y.press(a11y.find(self.root, "Start", role="push button"))
        a11y.press(a11y.find(self.root, "Pause", role="push button"))
        a11y.find(self.root, "Start", role="push button")

        self.open_window("Habits")
        a11y.press(a11y.find(self.root, "Add your first habit"))
        self.assertTrue(wait_for(lambda: desktop.window_ids("^New habit$")), "no editor window")
        self.assertTrue(desktop.wait_active("^New habit$"), "the editor is not active")
        desktop.run(["xdotool", "type", "--delay", "20", "Water"])
        a11y.press(a11y.find(self.root, "Create"))
        self.assertTrue(wait_for(lambda: not desktop.window_ids("^New habit$")))
        a11y.press(a11y.find_in(self.root, "Water", "Add one"))
        a11y.find(self.root, "1/8")

        window = self.open_window("Tasks")
        desktop.run(["xdotool", "windowactivate", "--sync", str(window)])
        self.add_task("Buy milk")


if __name__ == "__main__":
    main()
