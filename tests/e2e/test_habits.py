#!/usr/bin/python3
"""End-to-end: the habits widget of the real tidewell binary on a throwaway desktop.
A habit is created through the editor window from the tray popup and counted up
three times quickly; the store then holds one history record for today with 3.

Usage: test_habits.py <tidewell binary> [screenshot folder]
"""
import datetime
import os
import signal
import sqlite3
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import SHOTS, TidewellCase, main  # noqa: E402



class HabitsOnTheDesktop(TidewellCase):
    def test_create_and_count_a_habit(self):
        a11y, desktop = self.a11y, self.desktop
        a11y.switch_on(a11y.find(self.root, "Habits in status bar"))
        (x, y), = desktop.tray_icons_or_report()
        desktop.click(x, y)
        self.assertTrue(wait_for(lambda: desktop.window_ids("^Habits$")), "popup did not open")
        a11y.press(a11y.find(self.root, "Add your first habit"))
        self.assertTrue(wait_for(lambda: desktop.window_ids("^New habit$")), "no editor window")
        self.assertTrue(desktop.wait_active("^New habit$"), "the editor is not active")
        desktop.run(["xdotool", "type", "--delay", "20", "Water"])
        if SHOTS:
            desktop.screenshot(os.path.join(SHOTS, "habit-editor.png"), "^New habit$")
        a11y.press(a11y.find(self.root, "Create"))
        self.assertTrue(wait_for(lambda: not desktop.window_ids("^New habit$")))

        if not desktop.window_ids("^Habits$"):
            desktop.click(x, y)
        add = a11y.find_in(self.root, "Water", "Add one")
        for _ in range(3):
            a11y.press(add)
        a11y.find(self.root, "3/8")  # the default goal is 8 a day
        if SHOTS:
            # Two more habits for the picture, one of them done for the day.
            for name, goal in (("Stretch", 1), ("Read", 2)):
                if not desktop.window_ids("^Habits$"):
                    desktop.click(x, y)
                a11y.press(a11y.find(self.root, "New habit", role="push button"))
                self.assertTrue(wait_for(lambda: desktop.window_ids("^New habit$")))
                self.assertTrue(desktop.wait_active("^New habit$"), "the editor is not active")
                desktop.run(["xdotool", "type", "--delay", "20", name])
                a11y.find(self.root, "Goal", role="spin button").queryValue().currentValue = goal
                a11y.press(a11y.find(self.root, "Create"))
                self.assertTrue(wait_for(lambda: not desktop.window_ids("^New habit$")))
            if not desktop.window_ids("^Habits$"):
                desktop.click(x, y)
            a11y.press(a11y.find_in(self.root, "Stretch", "Add one"))
            a11y.find(self.root, "1/1")
            desktop.wait_painted("^Habits$")
            desktop.screenshot(os.path.join(SHOTS, "habits-popup.png"), "^Habits$")
            desktop.click(x, y)  # close the popup
            a11y.switch_on(a11y.find(self.root, "Habits floating"))
            self.assertTrue(wait_for(lambda: desktop.window_ids("^Habits$")), "no panel")
            desktop.wait_painted("^Habits$")
            desktop.screenshot(os.path.join(SHOTS, "habits-panel.png"), "^Habits$")

        # SIGTERM saves the store before leaving.
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)
        store = os.path.join(desktop.home, ".local/share/com.brenlow.tidewell/store.sqlite")
        db = sqlite3.connect(store)
        today = datetime.date.today().isoformat()
        rows = db.execute("SELECT hh.date, hh.value, hh.completed FROM habit_history hh "
                          "JOIN habit h ON h.id = hh.habitId WHERE h.name = 'Water'").fetchall()
        self.assertEqual(rows, [(today, 3, 0)])


if __name__ == "__main__":
    main()
