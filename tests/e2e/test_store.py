#!/usr/bin/python3
"""End-to-end: what the real tidewell binary keeps of the user's data when things
go wrong. Half a minute of quick counts killed with SIGKILL loses at most the last two
seconds; a store file that cannot be written is refused at start and left as it was.

Usage: test_store.py <tidewell binary>
"""
import hashlib
import os
import signal
import sqlite3
import subprocess
import sys
import time
import uuid

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
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
        # debounced save.
        pressed, start = [], time.monotonic()
        for i in range(75):
            time.sleep(max(0.0, start + 0.4 * i - time.monotonic()))
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


if __name__ == "__main__":
    main()
