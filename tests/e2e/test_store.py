#!/usr/bin/python3
"""End-to-end: what the real tidewell binary keeps of the user's data when things
go wrong. Half a minute of quick counts killed with SIGKILL loses at most the last two
seconds; a store file that cannot be written is refused at start and left as it was;
a store damaged under the running app stops taking writes, says so, and the backup
the app made the day before (under libfaketime) brings that day's data back from
the hub's File menu.

Usage: test_store.py <tidewell binary>
"""
import datetime
import hashlib
import os
import signal
import sqlite3
import subprocess
import sys
import time
import uuid

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import holds, wait_for  # noqa: E402
from tidewell_case import APP, TidewellCase, main  # noqa: E402


class StoreUnderStress(TidewellCase):
    def store(self):
        return os.path.join(self.desktop.home, ".local/share/com.brenlow.tidewell/store.sqlite")

    def stop_app(self):
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)

    def test_1_burst_killed_loses_at_most_two_seconds(self):
        # A habit with room for every count, in the tray, written while the app is stopped.
        self.stop_app()
        db = sqlite3.connect(self.store())
        db.execute('INSERT INTO habit (id, icon, name, colorHex, maxValue, currentValue, '
                   'firstTrackerDate, "order") VALUES (?, ?, ?, ?, 100, 0, ?, 0)',
                   (str(uuid.uuid4()), "💧", "Water", "#3B82F6", time.time()))
        db.execute('INSERT OR REPLACE INTO widget_placement (widgetId, mode, inStatusBar, '
                   'inFloating, desktopFrameJSON, alwaysOnTop) VALUES ("habits", "off", 1, 0, '
                   'NULL, 0)')
        db.commit()
        db.close()
        self.relaunch()
        root = self.root

        (x, y), = self.desktop.tray_icons_or_report()
        self.desktop.click(x, y)
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^Habits$")), "no popup")
        add = self.a11y.find_in(root, "Water", "Add one")
        # Half a minute of counts 0.4 s apart: never a pause long enough for the
        # debounced save. The app keeps running between them.
        pressed, start = [], time.monotonic()
        for i in range(75):
            self.assertTrue(holds(lambda: self.app.poll() is None,
                                  max(0.0, start + 0.4 * i - time.monotonic())), "the app ended")
            self.a11y.press(add)
            pressed.append(time.monotonic())
        self.a11y.find(root, "75/100")
        killed = time.monotonic()
        self.app.send_signal(signal.SIGKILL)
        self.app.wait(10)

        db = sqlite3.connect(self.store())
        (count,), = db.execute("SELECT currentValue FROM habit WHERE name = 'Water'").fetchall()
        integrity, = db.execute("PRAGMA integrity_check").fetchone()
        db.close()
        self.assertEqual(integrity, "ok")
        # Every count made more than two seconds before the kill is on disk (a tenth
        # of a second allowed for the press to travel through the accessibility bus).
        older = sum(1 for t in pressed if t < killed - 2.1)
        self.assertGreaterEqual(count, older, "lost %d counts" % (75 - count))
        self.relaunch()

    def test_2_read_only_store_is_refused_untouched(self):
        self.stop_app()
        path = self.store()
        root_user = os.geteuid() == 0
        # Root writes through file modes; an immutable file stops even root.
        subprocess.run(["chattr", "+i", path] if root_user else ["chmod", "444", path], check=True)
        try:
            before = hashlib.sha256(open(path, "rb").read()).hexdigest()
            started = time.monotonic()
            run = subprocess.run([APP], env=self.desktop.env, capture_output=True, text=True,
                                 timeout=30)
            self.assertNotEqual(run.returncode, 0)
            self.assertLess(time.monotonic() - started, 10)
            self.assertRegex(run.stderr, r"(?m)^Failed to initialise SwiftData store at %s: .*"
                             r"read-only" % path)
            self.assertEqual(hashlib.sha256(open(path, "rb").read()).hexdigest(), before)
        finally:
            subprocess.run(["chattr", "-i", path] if root_user else ["chmod", "644", path])
        self.relaunch()

    def backups(self):
        return os.path.join(os.path.dirname(self.store()), "backups")

    def launch(self, **env):
        self.log = os.path.join(self.desktop.home, "tidewell.log")
        type(self).app = subprocess.Popen([APP], env=dict(self.desktop.env, **env),
                                          stdout=subprocess.DEVNULL, stderr=open(self.log, "a"))
        type(self).root = self.a11y.application("Tidewell")

    def find_named(self, predicate, timeout=10):
        """The first showing control whose name `predicate` accepts."""
        import pyatspi
        found = wait_for(lambda: pyatspi.utils.findDescendant(
            self.root, lambda o: o is not None and o.name and predicate(o.name)
            and o.getState().contains(pyatspi.STATE_SHOWING)), timeout, 0.2)
        self.assertTrue(found, "no control of that name")
        return found

    def test_3_damage_under_the_running_app_then_restore_yesterday(self):
        a11y = self.a11y
        today = datetime.date.today()
        yesterday = today - datetime.timedelta(days=1)
        # Yesterday (faked): the app checks the store and backs it up a few seconds in.
        self.stop_app()
        self.launch(LD_PRELOAD="/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1",
                    FAKETIME="-1d", FAKETIME_DONT_FAKE_MONOTONIC="1")
        backup = os.path.join(self.backups(), "store-%s.sqlite" % yesterday.isoformat())
        self.assertTrue(wait_for(lambda: os.path.exists(backup), 30, 0.5), "no backup yesterday")
        self.stop_app()

        # Today: a second habit, and years of history, so that the store has a middle.
        db = sqlite3.connect(self.store())
        db.execute('INSERT INTO habit (id, icon, name, colorHex, maxValue, currentValue, '
                   'firstTrackerDate, "order") VALUES (?, ?, ?, ?, 5, 0, ?, 1)',
                   (str(uuid.uuid4()), "🍵", "Tea", "#10B981", time.time()))
        (water,), = db.execute("SELECT id FROM habit WHERE name = 'Water'").fetchall()
        db.executemany("INSERT INTO habit_history VALUES (?, ?, 3, 100, 0, ?)",
                       [(str(uuid.uuid4()), (today - datetime.timedelta(days=d)).isoformat(),
                         water) for d in range(1, 4000)])
        db.commit()
        db.close()
        monitor_log = open(os.path.join(self.desktop.home, "monitor.log"), "w+")
        monitor = subprocess.Popen(
            ["dbus-monitor", "--session", "interface='org.freedesktop.Notifications'"],
            env=self.desktop.env, stdout=monitor_log, stderr=subprocess.DEVNULL)
        try:
            self.launch()
            root = self.root
            switch = a11y.find(root, "Habits in status bar")
            a11y.switch_on(switch)
            (x, y), = self.desktop.tray_icons_or_report()
            self.desktop.click(x, y)
            self.assertTrue(wait_for(lambda: self.desktop.window_ids("^Habits$")), "no popup")
            a11y.find_in(root, "Tea", "Add one")

            # The disk fails: the inner pages of the history's indexes, which a count
            # goes through and the app has not written since it started (its writes
            # are still in the log), are overwritten.
            db = sqlite3.connect("file:%s?mode=ro" % self.store(), uri=True)
            pages = [p for (p,) in db.execute(
                "SELECT pageno FROM dbstat WHERE name IN (SELECT name FROM sqlite_master "
                "WHERE type = 'index' AND tbl_name = 'habit_history') "
                "AND pagetype = 'internal' ORDER BY pageno")]
            (size,), = db.execute("PRAGMA page_size").fetchall()
            db.close()
            self.assertTrue(pages, "the index has no inner pages")
            with open(self.store(), "r+b") as store:
                for page in pages:
                    store.seek((page - 1) * size)
                    store.write(b"\x5a" * size)
            damaged = hashlib.sha256(open(self.store(), "rb").read()).hexdigest()
            a11y.press(a11y.find_in(root, "Water", "Add one"))

            self.find_named(lambda n: n.startswith("The store is damaged ("))  # the hub
            # ...and the popup, for someone who only uses the widgets.
            self.find_named(lambda n: n.startswith("The store is damaged: changes are not saved"))
            self.assertTrue(wait_for(lambda: "damaged" in open(monitor_log.name).read(), 10),
                            "no notification")
            # Nothing more is written to the damaged file.
            a11y.press(a11y.find_in(root, "Tea", "Add one"))
            # Past the debounced save, the file is as it was.
            self.assertTrue(holds(lambda: hashlib.sha256(open(self.store(), "rb").read())
                                  .hexdigest() == damaged, 2.5), "the damaged store was written")

            a11y.press(a11y.find(root, "File"))
            a11y.press(a11y.find(root, "Restore from backup…", role="menu item"))
            a11y.find(root, "Backups")
            day = "%s, %d %s %d" % (yesterday.strftime("%A"), yesterday.day,
                                    yesterday.strftime("%B"), yesterday.year)
            row = self.find_named(lambda n: n.startswith(day + " — 1 habit"))
            a11y.press(row)
            a11y.press(a11y.find(root, "Restore…"))
            a11y.press(a11y.find(root, "Restore", role="push button"))

            # The app starts again on yesterday's store, in the same process, and takes
            # the note the restore left for it: Water, and no Tea.
            folder = os.path.dirname(self.store())
            note = self.store() + ".restored"
            self.assertTrue(wait_for(lambda: any(f.startswith("store-damaged-") for f in
                                                 os.listdir(folder)) and not os.path.exists(note),
                                     20), "the app did not come back: %s" % open(self.log).read())
            self.assertIsNone(self.app.poll())
            type(self).root = self.a11y.application("Tidewell")
            root = self.root
            (x, y), = self.desktop.tray_icons_or_report()
            self.desktop.click(x, y)
            self.assertTrue(wait_for(lambda: self.desktop.window_ids("^Habits$")), "no popup")
            a11y.find_in(root, "Water", "Add one")
            self.assertRaises(AssertionError, a11y.find_in, root, "Tea", "Add one", 2)
            self.assertTrue(wait_for(lambda: "Backup restored" in open(monitor_log.name).read(),
                                     10), "no word of the restore")
        finally:
            monitor.terminate()
            monitor_log.close()


if __name__ == "__main__":
    main()
