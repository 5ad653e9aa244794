#!/usr/bin/python3
"""End-to-end: the real app against the real tidewell-server. The first computer
signs in with a token made by `tidewell-server token create`, counts a habit, adds
a task and changes the focus length, and each change lands on the server; a second
computer (another HOME) signs in to the same account, presses Sync and shows the
same habits and tasks, and after its next start the same timer settings.

Usage: test_server_sync.py <tidewell binary>; TIDEWELL_SERVER_BINARY names the server.
"""
import http.client
import json
import os
import signal
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from tidewell_server import TidewellServer  # noqa: E402
from desktop import wait_for  # noqa: E402
from tidewell_case import APP, TidewellCase, main  # noqa: E402

SERVER = os.environ.get("TIDEWELL_SERVER_BINARY")


class AppAgainstServer(TidewellCase):
    @classmethod
    def before_launch(cls):
        cls.server = TidewellServer(SERVER)
        cls.server.add_user()
        cls.token = cls.server.create_token()
        cls.port = cls.server.start().port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        super().tearDownClass()

    @classmethod
    def get(cls, path):
        try:
            conn = http.client.HTTPConnection("127.0.0.1", cls.port, timeout=5)
            conn.request("GET", path, headers={"Authorization": "Bearer " + cls.token})
            reply = conn.getresponse()
            return json.loads(reply.read()) if reply.status == 200 else None
        except OSError:
            return None

    def sign_in(self, root):
        self.sign_in_with_token(root, "http://127.0.0.1:%d" % self.port, self.token)

    def test_two_computers_share_one_account(self):
        a11y, desktop = self.a11y, self.desktop
        self.sign_in(self.root)

        switch, icon = self.in_popup(self.root, "Habits")
        self.add_first_habit(self.root, "Water", icon)
        a11y.press(a11y.find_in(self.root, "Water", "Add one"))
        self.close_popup(switch, icon)
        landed = lambda path, test: wait_for(lambda: test(self.get(path)), 10)  # noqa: E731
        self.assertTrue(landed("/api/v1/habits", lambda r: r and r["data"] and
                               r["data"][0]["name"] == "Water" and
                               r["data"][0]["currentValue"] == 1), self.get("/api/v1/habits"))

        switch, icon = self.in_popup(self.root, "Tasks")
        self.add_task("Buy milk")
        self.close_popup(switch, icon)
        self.assertTrue(landed("/api/v1/tasks", lambda r: r and any(
            t["header"] == "Buy milk" for lst in r["data"] for t in lst["tasks"])),
            self.get("/api/v1/tasks"))

        switch, icon = self.in_popup(self.root, "Pomodoro")
        a11y.press(a11y.find(self.root, "Settings", role="push button"))
        a11y.find(self.root, "Focus duration", role="spin button").queryValue().currentValue = 50
        a11y.press(a11y.find(self.root, "Save"))
        self.close_popup(switch, icon)
        self.assertTrue(landed("/api/v1/pomodoro", lambda r: r and r["data"] and
                               r["data"]["pomodoroDuration"] == "50"), self.get("/api/v1/pomodoro"))

        # The second computer: the first one is gone, another HOME starts afresh, and
        # the keyring (one per desktop session here) no longer holds the first's token.
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)
        cleared = desktop.run(["secret-tool", "clear", "user", "api-token-v2",
                               "server", "com.brenlow.tidewell"])
        self.assertEqual(cleared.returncode, 0, cleared.stderr)
        home = tempfile.mkdtemp(prefix="tidewell-second-")
        env = dict(desktop.env, HOME=home, XDG_DATA_HOME=os.path.join(home, "data"),
                   XDG_CONFIG_HOME=os.path.join(home, "config"),
                   XDG_RUNTIME_DIR=tempfile.mkdtemp(prefix="tidewell-run-"))
        type(self).app = subprocess.Popen([APP], env=env, stdout=subprocess.DEVNULL,
                                          stderr=subprocess.PIPE, text=True)
        root = a11y.application("Tidewell", pid=self.app.pid)
        self.sign_in(root)
        import pyatspi
        sync = a11y.find(root, "Sync", role="push button")
        self.assertTrue(wait_for(lambda: sync.getState().contains(pyatspi.STATE_ENABLED)))
        a11y.press(sync)
        # Disabled while it runs, which may be too short a moment to see.
        wait_for(lambda: not sync.getState().contains(pyatspi.STATE_ENABLED), 0.3)
        self.assertTrue(wait_for(lambda: sync.getState().contains(pyatspi.STATE_ENABLED)))
        for widget in ("Habits", "Tasks", "Pomodoro"):
            a11y.switch_on(a11y.find(root, widget + " floating"))
        a11y.find(root, "Water", timeout=15)
        a11y.find(root, "1/8")
        a11y.find(root, "Buy milk")
        # The timer reads its settings from the store when it starts, so the pulled
        # ones show from the next start on.
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)
        type(self).app = subprocess.Popen([APP], env=env, stdout=subprocess.DEVNULL,
                                          stderr=subprocess.PIPE, text=True)
        a11y.find(a11y.application("Tidewell", pid=self.app.pid), "Pomodoro 50:00", timeout=15)


if __name__ == "__main__":
    main()
