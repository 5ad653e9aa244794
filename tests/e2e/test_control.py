#!/usr/bin/python3
"""End-to-end: the rest of the desktop drives the running app. `tidewell ctl`
starts and pauses the timer shown in the tray popup, `status --json` reports it,
`status --follow --format waybar` prints a line when the timer is paused and when
the phase ends, `tidewell habit count` raises the count in the habits widget and
its PUT reaches the server half a second later, and with no Tidewell running the
commands say so, exit 1 and start nothing.

Usage: test_control.py <tidewell binary>
"""
import json
import os
import queue
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import holds, wait_for  # noqa: E402
from recording_server import RecordingServer  # noqa: E402
from tidewell_case import APP, TidewellCase, main  # noqa: E402

class ControlFromTheDesktop(TidewellCase):
    @classmethod
    def before_launch(cls):
        cls.server = RecordingServer()

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        super().tearDownClass()

    def tidewell(self, *args):
        return subprocess.run([APP] + list(args), env=self.desktop.env, capture_output=True,
                              text=True, timeout=20)

    def test_1_timer(self):
        a11y = self.a11y
        switch, icon = self.one_minute_focus()

        lines = queue.Queue()
        follow = subprocess.Popen([APP, "ctl", "status", "--follow", "--format", "waybar"],
                                  env=self.desktop.env, stdout=subprocess.PIPE, text=True)
        threading.Thread(target=lambda: [lines.put(json.loads(l)) for l in follow.stdout],
                         daemon=True).start()

        def next_line(test, timeout):
            deadline = time.monotonic() + timeout
            while time.monotonic() < deadline:
                try:
                    line = lines.get(timeout=max(0.1, deadline - time.monotonic()))
                except queue.Empty:
                    break
                if test(line):
                    return line
            self.fail("no status line came")

        try:
            first = next_line(lambda l: True, 10)
            self.assertEqual((first["text"], first["class"]), ("🍅 01:00", "focus"))

            self.assertEqual(self.tidewell("ctl", "toggle").returncode, 0)
            a11y.find(self.root, "Pause", role="push button")  # the popup shows it running
            status = json.loads(self.tidewell("ctl", "status", "--json").stdout)
            self.assertTrue(status["active"])
            self.assertEqual(status["phase"], "focus")
            next_line(lambda l: l["text"] != "🍅 01:00", 5)  # counting down

            self.assertEqual(self.tidewell("ctl", "pause").returncode, 0)
            paused = next_line(lambda l: "stopped" in l["tooltip"], 5)
            self.assertEqual(paused["class"], "focus")
            a11y.find(self.root, "Start", role="push button")
            self.assertFalse(json.loads(self.tidewell("ctl", "status", "--json").stdout)["active"])

            # Resumed, the minute runs out: the bar hears of the break at once.
            self.assertEqual(self.tidewell("ctl", "start").returncode, 0)
            ended = next_line(lambda l: l["class"] == "short-break", 75)
            self.assertEqual(ended["text"], "☕ 05:00")
        finally:
            follow.kill()
        self.assertEqual(self.tidewell("ctl", "status", "--format", "{phase}|{state}").stdout,
                         "Short Break|stopped\n")
        self.close_popup(switch, icon)

    def test_2_habit_count_reaches_widget_and_server(self):
        a11y = self.a11y
        self.sign_in_with_token(self.root, self.server.address, "tok-ctl")

        switch, icon = self.in_popup(self.root, "Habits")
        self.add_first_habit(self.root, "Water", icon)
        a11y.find(self.root, "0/8")

        asked = time.monotonic()
        counted = self.tidewell("habit", "count", "Water")
        self.assertEqual((counted.returncode, counted.stdout), (0, "Water\t1\n"), counted.stderr)
        a11y.find(self.root, "1/8")

        def counted_puts():
            # The new habit's own push may still land after `asked`, with 0.
            out = []
            for r in self.server.requests:
                if r.method != "PUT" or r.path != "/api/v1/habits" or r.at <= asked:
                    continue
                habits = r.body["data"] if isinstance(r.body, dict) else r.body
                if habits and habits[0]["currentValue"] == 1:
                    out.append(r)
            return out
        self.assertTrue(wait_for(counted_puts, 5), self.server.requests)
        took = counted_puts()[0].at - asked
        self.assertGreaterEqual(took, 0.4)  # the debounce
        self.assertEqual(self.tidewell("habit", "list").stdout, "Water\t1/8\n")

        missing = self.tidewell("habit", "count", "Tea")
        self.assertEqual(missing.returncode, 3)
        self.assertIn("No habit is named", missing.stderr)
        self.assertEqual(self.tidewell("ctl", "explode").returncode, 2)
        self.close_popup(switch, icon)

    def test_3_nothing_runs(self):
        self.app.terminate()
        self.assertEqual(self.app.wait(15), 0)
        self.assertTrue(wait_for(lambda: not self.desktop.window_ids("Tidewell", visible=False)))
        for args in (["ctl", "toggle"], ["ctl", "status", "--follow"], ["habit", "list"]):
            started = time.monotonic()
            result = self.tidewell(*args)
            self.assertEqual(result.returncode, 1, args)
            self.assertEqual(result.stderr, "tidewell: Tidewell is not running\n")
            self.assertLess(time.monotonic() - started, 5)
        self.assertTrue(holds(lambda: subprocess.run(["pgrep", "-f", "^" + APP + "$"],
                                                     capture_output=True).returncode == 1, 1.0),
                        "a command started Tidewell")


if __name__ == "__main__":
    main()
