#!/usr/bin/python3
"""Kills the real app with SIGKILL while it is being written to, and checks what
survives. Under Xvfb with a window manager, a tray and a private session bus, the
app gets a steady stream of D-Bus calls (habit counts, new tasks, timer phases
started and skipped) and is killed at a random moment: between calls, inside the
half-second save delay, or while a save is under way. After every kill the store
must pass `PRAGMA integrity_check`, the app must start again, and every change
acknowledged by a save that finished more than the save delay before the kill
must be there. A reader beside the app looks at the store every quarter second
and notes what it finds saved (the habit's count, the tasks, the ended phases);
each such look older than SAVE_DELAY must hold after the kill. A timer phase is
saved before its Skip returns, so every acknowledged Skip must be there too.
Changes acknowledged but not yet saved at the kill are counted, not failed: the
app saves half a second after the last change, and at least every 2 s in a burst.

Usage: crash_app.py <tidewell binary> <kills> [--json FILE]
Prints app_kills, app_starts, app_lost, app_acknowledged and app_unsaved_at_kill.
"""
import json
import os
import random
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import uuid

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "e2e"))
from desktop import Desktop, wait_for  # noqa: E402

import dbus  # noqa: E402

SAVE_DELAY = 0.5
NAME = "com.brenlow.tidewell"
PATH = "/com/brenlow/tidewell"


def seed_document():
    habit = {"id": str(uuid.uuid4()), "icon": "💧", "name": "Crash", "colorHex": "#0A84FF",
             "maxValue": 1000000, "currentValue": 0, "order": 0,
             "firstTrackerDate": "2026-01-01T08:00:00.000Z"}
    return {"format": "tidewell-export", "version": 1, "timer": [], "taskLists": [], "tasks": [],
            "habits": [habit], "habitHistory": [], "placements": [], "focusSessions": []}


class AppUnderFire:
    def __init__(self, app, desktop):
        self.app_path = app
        self.desktop = desktop
        self.store = os.path.join(desktop.home, ".local/share/com.brenlow.tidewell/store.sqlite")
        self.proc = None
        self.log = open(os.path.join(desktop.tmp, "app.log"), "a")
        self.bus = dbus.bus.BusConnection(desktop.env["DBUS_SESSION_BUS_ADDRESS"])
        # What the app acknowledged: (monotonic time of the reply, what).
        self.counts = []  # habit value after the count
        self.tasks = []   # task text
        self.skips = 0    # timer phases ended by an acknowledged Skip
        self.looks = []   # (monotonic time, what the store held then)
        self.acknowledged = 0

    def start(self):
        self.proc = subprocess.Popen([self.app_path], env=self.desktop.env,
                                     stdout=subprocess.DEVNULL, stderr=self.log)
        started = wait_for(lambda: self.bus.name_has_owner(NAME) or self.proc.poll() is not None,
                           30)
        return bool(started) and self.proc.poll() is None

    def interface(self, name):
        return dbus.Interface(self.bus.get_object(NAME, PATH), NAME + "." + name)

    def write_until_killed(self, duration):
        """Calls the app until it dies, killing it after `duration` seconds from
        another thread, so that the kill may land in the middle of a call. Returns
        the moment of the kill."""
        killed = {}

        def kill():
            killed["at"] = time.monotonic()
            os.kill(self.proc.pid, signal.SIGKILL)

        habits, tasks, timer = (self.interface(n) for n in ("Habits", "Tasks", "Timer"))
        killer = threading.Timer(duration, kill)
        reader = threading.Thread(target=self.watch_store, args=(killed,))
        killer.start()
        reader.start()
        try:
            while True:
                roll = random.random()
                if roll < 0.6:
                    value = int(habits.Count("Crash", timeout=5))
                    self.counts.append((time.monotonic(), value))
                    self.acknowledged += 1
                elif roll < 0.9:
                    text = "crash %s" % uuid.uuid4().hex[:12]
                    tasks.Add("", text, timeout=5)
                    self.tasks.append((time.monotonic(), text))
                    self.acknowledged += 1
                else:
                    timer.Start(timeout=5)
                    timer.Skip(timeout=5)
                    self.skips += 1
                    self.acknowledged += 1
        except dbus.exceptions.DBusException:
            pass
        killer.join()
        reader.join()
        self.proc.wait(10)
        return killed["at"]

    def saved_state(self):
        """What the store holds now: the habit's count, the tasks, the skipped phases."""
        db = sqlite3.connect(self.store, timeout=10)
        try:
            value = db.execute('SELECT "currentValue" FROM habit WHERE "name" = ?',
                               ("Crash",)).fetchone()
            stored = set(t for (t,) in db.execute('SELECT "header" FROM task_item'))
            skipped = db.execute(
                "SELECT COUNT(*) FROM focus_session WHERE outcome = 'skipped'").fetchone()[0]
        finally:
            db.close()
        return (value[0] if value else None), stored, skipped

    def watch_store(self, killed):
        while "at" not in killed:
            looked_at = time.monotonic()
            try:
                self.looks.append((looked_at, self.saved_state()))
            except sqlite3.Error:
                pass
            time.sleep(0.25)

    def check_store(self, killed_at):
        """Problems found in the store after a kill, what was lost, and how many
        acknowledged changes were not saved yet."""
        problems = []
        db = sqlite3.connect(self.store)
        try:
            verdict = db.execute("PRAGMA integrity_check").fetchall()
        finally:
            db.close()
        if verdict != [("ok",)]:
            problems.append("integrity_check: %r" % verdict[:5])
        value, stored, skipped = self.saved_state()
        lost = 0
        for looked_at, (seen_value, seen_tasks, seen_skipped) in self.looks:
            if looked_at > killed_at - SAVE_DELAY:
                continue
            if seen_value is not None and (value is None or value < seen_value):
                problems.append("habit count %s after the kill, %d saved %.2f s before it"
                                % (value, seen_value, killed_at - looked_at))
                lost += 1
            gone = seen_tasks - stored
            if gone:
                problems.append("%d saved tasks gone, e.g. %s" % (len(gone), sorted(gone)[0]))
                lost += len(gone)
            if skipped < seen_skipped:
                problems.append("%d timer phases stored, %d saved before"
                                % (skipped, seen_skipped))
                lost += seen_skipped - skipped
        if skipped < self.skips:
            problems.append("%d timer phases stored, %d acknowledged" % (skipped, self.skips))
            lost += self.skips - skipped
        self.looks = []
        unsaved = len([t for t, text in self.tasks if text not in stored])
        unsaved += 1 if self.counts and (value is None or value < self.counts[-1][1]) else 0
        self.tasks = [(t, text) for t, text in self.tasks if text in stored]
        return sorted(set(problems)), lost, unsaved


def main():
    app, kills = os.path.abspath(sys.argv[1]), int(sys.argv[2])
    out = sys.argv[sys.argv.index("--json") + 1] if "--json" in sys.argv else None
    desktop = Desktop(tray=True, keyring=True)
    figures = {"app_kills": 0, "app_starts": 0, "app_lost": 0, "app_acknowledged": 0,
               "app_unsaved_at_kill": 0}
    failures = []
    try:
        seed = os.path.join(desktop.tmp, "seed.json")
        with open(seed, "w") as f:
            json.dump(seed_document(), f)
        seeded = desktop.run([app, "import", "--replace", seed], timeout=60)
        if seeded.returncode != 0:
            raise SystemExit("could not seed the store: " + seeded.stderr)
        runner = AppUnderFire(app, desktop)
        for round_ in range(kills):
            if not runner.start():
                failures.append("round %d: the app did not start" % round_)
                break
            figures["app_starts"] += 1
            killed_at = runner.write_until_killed(random.uniform(0.2, 4.0))
            figures["app_kills"] += 1
            problems, lost, unsaved = runner.check_store(killed_at)
            figures["app_lost"] += lost
            figures["app_unsaved_at_kill"] += unsaved
            failures += ["round %d: %s" % (round_, p) for p in problems]
        if runner.start():
            figures["app_starts"] += 1
            runner.proc.terminate()
            runner.proc.wait(20)
        else:
            failures.append("the app did not start after the last kill")
        figures["app_acknowledged"] = runner.acknowledged
    finally:
        desktop.close()
    for name, value in figures.items():
        print(name, value)
    for failure in failures:
        print("FAIL", failure)
    if out:
        with open(out, "w") as f:
            json.dump(dict(figures, failures=failures), f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
