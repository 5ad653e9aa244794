#!/usr/bin/python3
"""End-to-end: the tasks widget of the real tidewell binary on a throwaway desktop.
A list is created through the prompt, three tasks are typed, one is checked and
one made the focus task; the store holds them in order with the right flags and
the popup stays open throughout.

Usage: test_tasks.py <tidewell binary> [screenshot folder]
"""
import os
import signal
import sqlite3
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import SHOTS, TidewellCase, main  # noqa: E402

LONG = "Call the bank about the standing order for the flat and ask for the new card"


class TasksOnTheDesktop(TidewellCase):
    def popup_open(self):
        return self.desktop.window_ids("^Tasks$")

    def type_line(self, text):
        self.desktop.run(["xdotool", "type", "--delay", "15", text])
        self.desktop.run(["xdotool", "key", "Return"])

    def test_list_tasks_check_and_focus(self):
        a11y, desktop = self.a11y, self.desktop
        a11y.switch_on(a11y.find(self.root, "Tasks in status bar"))
        (x, y), = desktop.tray_icons_or_report()
        desktop.click(x, y)
        self.assertTrue(wait_for(self.popup_open), "popup did not open")
        shown = len(desktop.windows_of())
        a11y.press(a11y.find(self.root, "Example Task List"))
        # Menus are popups, outside the accessibility tree: the keyboard reaches them.
        self.assertTrue(wait_for(lambda: len(desktop.windows_of()) > shown), "no menu")
        desktop.wait_painted()
        desktop.run(["xdotool", "key", "Down", "Down", "Return"])
        self.assertTrue(wait_for(lambda: desktop.window_ids("^New task list$")), "no prompt")
        self.assertTrue(desktop.wait_active("^New task list$"), "the prompt is not active")
        self.type_line("Errands")
        self.assertTrue(wait_for(lambda: not desktop.window_ids("^New task list$")))
        self.assertTrue(self.popup_open(), "the popup closed under the prompt")
        a11y.find(self.root, "Errands")

        field = a11y.find(self.root, "Add a task…")
        import pyatspi
        box = field.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        desktop.click(box.x + box.width // 2, box.y + box.height // 2)
        time.sleep(0.2)
        for text in ("Buy milk", "Post the letter", LONG):
            self.type_line(text)
        milk = a11y.find(self.root, "Buy milk")
        done = a11y.find(milk, "Done")
        a11y.press(done)
        self.assertTrue(wait_for(lambda: a11y.is_checked(done)), "the task did not check")
        letter = a11y.find(self.root, "Post the letter")
        a11y.press(a11y.find(letter, "Set as focus task"))
        a11y.find(letter, "Remove focus")
        self.assertTrue(self.popup_open())
        if SHOTS:
            desktop.wait_painted("^Tasks$")
            desktop.screenshot(os.path.join(SHOTS, "tasks-popup.png"), "^Tasks$")
            # Resting on a long task shows its whole text.
            row = a11y.find(self.root, LONG).queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
            shown = len(desktop.windows_of())
            desktop.run(["xdotool", "mousemove", str(row.x + 60), str(row.y + row.height // 2)])
            self.assertTrue(wait_for(lambda: len(desktop.windows_of()) > shown), "no tooltip")
            desktop.wait_painted()
            desktop.screenshot(os.path.join(SHOTS, "tasks-tooltip.png"))
            desktop.click(x, y)  # close the popup
            a11y.switch_on(a11y.find(self.root, "Tasks floating"))
            desktop.wait_painted("^Tasks$")
            desktop.screenshot(os.path.join(SHOTS, "tasks-panel.png"), "^Tasks$")

        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)
        db = sqlite3.connect(os.path.join(desktop.home,
                                          ".local/share/com.brenlow.tidewell/store.sqlite"))
        (list_id, focus), = db.execute(
            "SELECT id, highlightedTaskId FROM task_list WHERE name = 'Errands'").fetchall()
        tasks = db.execute("SELECT header, checked, id FROM task_item WHERE listId = ? "
                           "ORDER BY \"order\"", (list_id,)).fetchall()
        self.assertEqual([(h, c) for h, c, _ in tasks],
                         [("Buy milk", 1), ("Post the letter", 0), (LONG, 0)])
        self.assertEqual(focus, tasks[1][2])


if __name__ == "__main__":
    main()
