#!/usr/bin/python3
"""End-to-end: history, export and import on the real binary. A one-minute focus
phase runs to its end and the History window's Focus tab shows one completed
session today; a habit counted twice is exported with `tidewell export`, the store
deleted, and `tidewell import --replace` through the running app brings the habit
and its count back into the habits widget. With no Tidewell running, import and
export work on the store directly.

Usage: test_history.py <tidewell binary> [screenshot folder]
"""
import datetime
import json
import os
import subprocess
import sys
import tempfile
import uuid

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import APP, SHOTS, TidewellCase, main  # noqa: E402


def long_date(day):
    return "%d %s %d" % (day.day, day.strftime("%B"), day.year)


class HistoryOnTheDesktop(TidewellCase):
    def tidewell(self, *args):
        return subprocess.run([APP] + list(args), env=self.desktop.env, capture_output=True,
                              text=True, timeout=60)

    def store(self):
        return os.path.join(self.desktop.home, ".local/share/com.brenlow.tidewell/store.sqlite")

    def open_history(self, tab):
        a11y = self.a11y
        a11y.press(a11y.find(self.root, "File"))
        a11y.press(a11y.find(self.root, "History…", role="menu item"))
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^History$")), "no window")
        a11y.press(a11y.find(self.root, tab, role="page tab"))

    def show_history(self):
        """Through the bus, as a shortcut or a status bar would."""
        self.desktop.run(["gdbus", "call", "--session", "--dest", "com.brenlow.tidewell",
                          "--object-path", "/com/brenlow/tidewell",
                          "--method", "com.brenlow.tidewell.Data.ShowHistory"])
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^History$")), "no window")

    def test_1_a_finished_focus_phase_shows_in_history(self):
        a11y = self.a11y
        switch, icon = self.one_minute_focus()
        self.close_popup(switch, icon)

        self.assertEqual(self.tidewell("ctl", "start").returncode, 0)
        ended = lambda: json.loads(self.tidewell("ctl", "status", "--json").stdout)["phase"]  # noqa
        self.assertTrue(wait_for(lambda: ended() == "short-break", 75, 1), "the phase never ended")

        self.open_history("Focus")
        chart = a11y.find(self.root, "Sessions per day, last 4 weeks", role="list")
        today = chart.getChildAtIndex(chart.childCount - 1)
        self.assertEqual(today.name, long_date(datetime.date.today()) + ": 1 session")
        a11y.find(self.root, "Average session: 1 min")

    def test_2_export_delete_import_restores_the_habits(self):
        a11y = self.a11y
        switch, icon = self.in_popup(self.root, "Habits")
        self.add_first_habit(self.root, "Water", icon)
        for _ in range(2):
            self.assertEqual(self.tidewell("habit", "count", "Water").returncode, 0)
        a11y.find(self.root, "2/8")
        self.close_popup(switch, icon)

        self.show_history()
        a11y.press(a11y.find(self.root, "Habits", role="page tab"))
        map_ = a11y.find(self.root, "Water, last 12 months", role="list")
        today = map_.getChildAtIndex(map_.childCount - 1)
        self.assertEqual(today.name, "Water, %s: 2 of 8" % long_date(datetime.date.today()))

        folder = tempfile.mkdtemp()
        backup = os.path.join(folder, "backup.json")
        exported = self.tidewell("export", backup, "--csv", folder)
        self.assertEqual(exported.returncode, 0, exported.stderr)
        with open(os.path.join(folder, "habit_history.csv"), newline="") as f:
            self.assertIn("Water,", f.read())

        # A new machine: no store at all, a fresh Tidewell, the backup imported into it.
        self.app.terminate()
        self.assertEqual(self.app.wait(15), 0)
        for suffix in ("", "-wal", "-shm"):
            if os.path.exists(self.store() + suffix):
                os.remove(self.store() + suffix)
        self.relaunch()
        a11y.find(self.root, "Habits in status bar")
        bad = self.tidewell("import", "--merge", os.path.join(folder, "habit_history.csv"))
        self.assertEqual(bad.returncode, 3)
        self.assertIn("not valid JSON", bad.stderr)
        imported = self.tidewell("import", "--replace", backup)
        self.assertEqual(imported.returncode, 0, imported.stderr)
        self.assertIn("Habits: 1 added", imported.stdout)

        switch, icon = self.in_popup(self.root, "Habits")
        a11y.find_in(self.root, "Water", "Add one")
        a11y.find(self.root, "2/8")
        self.close_popup(switch, icon)

    def test_3_without_a_running_tidewell(self):
        self.app.terminate()
        self.assertEqual(self.app.wait(15), 0)
        folder = tempfile.mkdtemp()
        backup = os.path.join(folder, "offline.json")
        exported = self.tidewell("export", backup)
        self.assertEqual(exported.returncode, 0, exported.stderr)
        with open(backup) as f:
            document = json.load(f)
        self.assertEqual([h["name"] for h in document["habits"]], ["Water"])
        self.assertEqual(len([s for s in document["focusSessions"]
                              if s["outcome"] == "completed"]), 1)
        merged = self.tidewell("import", "--merge", backup)
        self.assertEqual(merged.returncode, 0, merged.stderr)
        self.assertIn("Imported " + backup, merged.stdout)
        self.assertEqual(self.tidewell("import", backup).returncode, 2)

    def test_4_screenshots(self):
        """A year of made-up history for the README's pictures."""
        if not SHOTS:
            self.skipTest("no screenshot folder given")
        today = datetime.date.today()
        habits, days, sessions = [], [], []
        for n, (name, icon, colour, target) in enumerate(
                (("Water", "💧", "#0A84FF", 8), ("Stretch", "🧘", "#30D158", 1),
                 ("Read", "📚", "#FF9F0A", 2))):
            habit_id = str(uuid.uuid4())
            habits.append({"id": habit_id, "icon": icon, "name": name, "colorHex": colour,
                           "maxValue": target, "currentValue": 0, "order": 10 + n,
                           "firstTrackerDate": "%sT08:00:00.000Z" % (today - datetime.timedelta(300))})
            for back in range(1, 300):
                value = ((back * 7 + n * 3) ** 2 % 11) % (target + 2)
                days.append({"id": str(uuid.uuid4()), "habitId": habit_id, "maxValue": target,
                             "date": (today - datetime.timedelta(back)).isoformat(),
                             "value": min(value, target), "completed": value >= target})
        for back in range(1, 365):
            day = today - datetime.timedelta(back)
            for k in range((back * 37) % 9 if day.weekday() < 5 else (back % 3)):
                start = datetime.datetime(day.year, day.month, day.day, 8 + k, 0)
                sessions.append({"id": str(uuid.uuid4()), "phase": "focus",
                                 "startedAt": start.isoformat() + ".000Z",
                                 "day": day.isoformat(),
                                 "endedAt": (start + datetime.timedelta(minutes=25)).isoformat()
                                 + ".000Z", "plannedSeconds": 1500, "elapsedSeconds": 1500,
                                 "outcome": "completed"})
        demo = os.path.join(tempfile.mkdtemp(), "demo.json")
        with open(demo, "w") as f:
            json.dump({"format": "tidewell-export", "version": 1, "timer": [], "taskLists": [],
                       "tasks": [], "habits": habits, "habitHistory": days, "placements": [],
                       "focusSessions": sessions}, f)
        for suffix in ("", "-wal", "-shm"):
            if os.path.exists(self.store() + suffix):
                os.remove(self.store() + suffix)
        self.relaunch()
        self.a11y.find(self.root, "Habits in status bar")
        merged = self.tidewell("import", "--merge", demo)
        self.assertEqual(merged.returncode, 0, merged.stderr)
        self.show_history()
        for tab, shot in (("Habits", "history-habits.png"), ("Focus", "history-focus.png")):
            self.a11y.press(self.a11y.find(self.root, tab, role="page tab"))
            self.desktop.wait_painted("^History$")
            self.desktop.screenshot(os.path.join(SHOTS, shot), "^History$")


if __name__ == "__main__":
    main()
