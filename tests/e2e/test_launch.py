#!/usr/bin/python3
"""End-to-end: later launches of the real tidewell binary while one runs. A
request too large to hand over is refused at once and the running app stays
well; a running app that does not answer is never joined by a second one; and a
sign-in callback's token does not stay in the process's argument list. The
entry "Launch at login" writes starts Tidewell without its hub when a widget is
placed and with it when none is, or when the only placed ones wait for a tray
the desktop lacks.

Usage: test_launch.py <tidewell binary>
"""
import os
import shlex
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import APP, TidewellCase, main  # noqa: E402


class LaterLaunches(TidewellCase):
    tray = False

    def tasks_placed(self):
        """The tasks widget's saved placement: (in the status bar, floating)."""
        return self.store_rows("SELECT inStatusBar, inFloating FROM widget_placement "
                               "WHERE widgetId = 'tasks'")

    def launch(self, *args, timeout=30):
        started = time.monotonic()
        run = subprocess.run([APP, *args], env=self.desktop.env, capture_output=True, text=True,
                             timeout=timeout)
        return run, time.monotonic() - started

    def test_1_oversized_request_is_refused_at_once(self):
        run, took = self.launch("tidewell://auth?token=" + "a" * 100_000 + "&state=x")
        self.assertNotEqual(run.returncode, 0)
        self.assertLess(took, 1.0)
        self.assertIn("too large", run.stderr)
        # The running app still answers a normal second launch.
        run, _ = self.launch()
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIsNone(self.app.poll())

    def test_2_a_stopped_app_is_not_joined_by_a_second(self):
        self.app.send_signal(signal.SIGSTOP)
        try:
            run, took = self.launch(timeout=20)
        finally:
            self.app.send_signal(signal.SIGCONT)
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertIn("does not answer", run.stderr)
        self.assertLess(took, 10)
        run, _ = self.launch()
        self.assertEqual(run.returncode, 0, run.stderr)

    def test_3_callback_token_leaves_the_argument_list(self):
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)
        secret = "tw_secret0123456789"
        type(self).app = subprocess.Popen(
            [APP, "tidewell://auth?token=%s&state=%s" % (secret, "ab" * 24)],
            env=self.desktop.env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.a11y.application("Tidewell")
        with open("/proc/%d/cmdline" % self.app.pid, "rb") as f:
            cmdline = f.read()
        self.assertNotIn(secret.encode(), cmdline)
        self.assertIn(os.path.basename(APP).encode(), cmdline)

    def test_4_started_at_login(self):
        a11y = self.a11y
        self.root = a11y.application("Tidewell")  # the one the test before started
        a11y.switch_on(a11y.find(self.root, "Launch at login"))
        entry = os.path.join(self.desktop.env["XDG_CONFIG_HOME"], "autostart",
                             "com.brenlow.tidewell.desktop")
        with open(entry) as f:
            exec_line = next(line for line in f if line.startswith("Exec="))
        command = shlex.split(exec_line[len("Exec="):])
        self.assertEqual(command[1:], ["--background"])

        def login(placed):
            """Quits, starts as the session would, and says whether the hub showed."""
            self.app.terminate()
            self.assertEqual(self.app.wait(15), 0)
            type(self).app = subprocess.Popen(command, env=self.desktop.env,
                                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            self.root = self.a11y.application("Tidewell")
            panel = "^%s$" % placed if placed else None
            if panel:
                self.assertTrue(wait_for(lambda: self.desktop.window_ids(panel)), "no panel")
            # Time enough for a hub to map, were it coming.
            return bool(wait_for(lambda: self.desktop.window_ids("^Tidewell$"), 1.5))

        self.assertTrue(login(None), "no widget is placed: the hub must show")
        a11y.switch_on(a11y.find(self.root, "Tasks floating"))
        self.assertTrue(wait_for(lambda: self.tasks_placed() == [(0, 1)]), "not saved")
        self.assertFalse(login("Tasks"), "a floating widget is placed: the hub must stay closed")
        # Asked for by hand, it still comes.
        run, _ = self.launch()
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^Tidewell$")), "no hub")
        # A second background start leaves the running one as it is.
        run, _ = self.launch("--background")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIsNone(self.app.poll())

        # Only in the status bar, on a desktop without a tray: nothing would be on
        # screen, so the hub shows after all.
        self.root = a11y.application("Tidewell")
        a11y.switch_on(a11y.find(self.root, "Tasks in status bar"))
        a11y.switch_off(a11y.find(self.root, "Tasks floating"))
        self.assertTrue(wait_for(lambda: self.tasks_placed() == [(1, 0)]), "not saved")
        login(None)
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^Tidewell$"), timeout=10),
                        "no tray came to show the widget in: the hub must show")


if __name__ == "__main__":
    main()
