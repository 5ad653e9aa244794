#!/usr/bin/python3
"""Kills the real app with SIGKILL while it is being written to, and checks what
survives. Under Xvfb with a window manager, a tray and a private session bus, the
app gets a steady stream of D-Bus calls (habit counts, new tasks, timer phases
started and skipped) and is killed at a random moment: between calls, inside the
half-second save delay, or while a save is under way. After every kill the store
must pass `PRAGMA integrity_check`, the app must start again, and every change it
acknowledged must be there:
  - counts and tasks acknowledged at least ACK_AGE seconds before the kill (their
    saves are delayed by 0.5 s and never by more than 2 s in a burst);
  - every timer phase whose Skip was acknowledged, whatever its age (a phase that
    ends is saved before the call returns).

Usage: crash_app.py <tidewell binary> <kills> [--json FILE]
Prints app_kills, app_starts, app_lost and app_acknowledged at the end.
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

ACK_AGE = 2.5
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
        self.bus = dbus.bus.BusConnection(desktop.env["DBUS_SESSION_BUS_ADDRESS"])
        # What the app acknowledged: (monotonic time of the reply, what).
        self.counts = []  # habit value after the count
        self.tasks = []   # task text
        self.skips = 0    # timer phases ended by an acknowledged Skip

    def start(self):
        self.proc = subprocess.Popen([self.app_path], env=self.desktop.env,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
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
        killer.start()
        try:
            while True:
                roll = random.random()
                if roll < 0.6:
                    value = int(habits.Count("Crash", timeout=5))
                    self.counts.append((time.monotonic(), value))
                elif roll < 0.9:
                    text = "crash %s" % uuid.uuid4().hex[:12]
                    tasks.Add("", text, timeout=5)
                    self.tasks.append((time.monotonic(), text))
                else:
                    timer.Start(timeout=5)
                    timer.Skip(timeout=5)
                    self.skips += 1
        except dbus.exceptions.DBusException:
            pass
        killer.join()
        self.proc.wait(10)
        return killed["at"]

    def check_store(self, killed_at):
        """Problems found in the store after a kill (an empty list when none)."""
        problems = []
        db = sqlite3.connect(self.store)
        try:
            verdict = db.execute("PRAGMA integrity_check").fetchall()
            if verdict != [("ok",)]:
                problems.append("integrity_check: %r" % verdict[:5])
            value = db.execute(
                'SELECT "currentValue" FROM habit WHERE "name" = ?', ("Crash",)).fetchone()
            stored = set(t for (t,) in db.execute('SELECT "header" FROM task_item'))
            skipped = db.execute(
                "SELECT COUNT(*) FROM focus_session WHERE outcome = 'skipped'").fetchone()[0]
        finally:
            db.close()
        due = killed_at - ACK_AGE
        lost = 0
        acked = max((v for t, v in self.counts if t <= due), default=None)
        if acked is not None and (value is None or value[0] < acked):
            problems.append("habit count %s, but %d was acknowledged" % (value and value[0], acked))
            lost += 1
        missing = [text for t, text in self.tasks if t <= due and text not in stored]
        if missing:
            problems.append("%d acknowledged tasks missing, e.g. %s" % (len(missing), missing[0]))
            lost += len(missing)
        if skipped < self.skips:
            problems.append("%d timer phases stored, %d acknowledged" % (skipped, self.skips))
            lost += self.skips - skipped
        return problems, lost


def main():
    app, kills = os.path.abspath(sys.argv[1]), int(sys.argv[2])
    out = sys.argv[sys.argv.index("--json") + 1] if "--json" in sys.argv else None
    desktop = Desktop(tray=True, keyring=True)
    figures = {"app_kills": 0, "app_starts": 0, "app_lost": 0, "app_acknowledged": 0}
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
            problems, lost = runner.check_store(killed_at)
            figures["app_lost"] += lost
            failures += ["round %d: %s" % (round_, p) for p in problems]
        if runner.start():
            figures["app_starts"] += 1
            runner.proc.terminate()
            runner.proc.wait(20)
        else:
            failures.append("the app did not start after the last kill")
        figures["app_acknowledged"] = len(runner.counts) + len(runner.tasks) + runner.skips
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
