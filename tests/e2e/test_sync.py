#!/usr/bin/python3
"""End-to-end: signing in with a pasted token against a local HTTP server that
records every request. The token is tested with one authorised request, the hub
then says "Connected", and the pull that follows a sign-in reaches the server.
A keyring that answers only seconds after the app starts (still locked at log-in)
shows the account as waiting, never as signed out, and then "Connected".

Usage: test_sync.py <tidewell binary>
"""
import os
import signal
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import holds, wait_for  # noqa: E402
from recording_server import EMPTY, RecordingServer  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402


class SyncOnTheDesktop(TidewellCase):
    tray = False

    @classmethod
    def before_launch(cls):
        cls.server = RecordingServer()

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        super().tearDownClass()

    def shown(self, root, name):
        try:
            self.a11y.find(root, name, timeout=0)
            return True
        except AssertionError:
            return False

    def sign_in(self):
        self.sign_in_with_token(self.root, self.server.address, "tok-e2e")

    def test_1_token_sign_in_reaches_the_server(self):
        self.sign_in()
        requests = self.server.requests
        seen = lambda path: [r for r in requests if r.path == path]  # noqa: E731
        self.assertTrue(wait_for(lambda: all(seen(p) for p in EMPTY)), "requests: %r" % requests)
        self.assertTrue(all(r.auth == "Bearer tok-e2e" for r in requests), requests)

    def test_2_slow_keyring_still_ends_connected(self):
        a11y = self.a11y
        if not self.shown(self.root, "Connected"):
            self.sign_in()
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)
        keyring = self.desktop.keyring
        keyring.send_signal(signal.SIGSTOP)
        try:
            started = time.monotonic()
            self.relaunch()
            root = self.root
            a11y.find(root, "Waiting for the keyring…", timeout=10)
            # Waiting is not signed out: no offer to sign in again, for five seconds.
            self.assertTrue(holds(lambda: not self.shown(root, "Not signed in"),
                                  max(0.0, 5.0 - (time.monotonic() - started)), interval=0.2),
                            "a stalled keyring was taken for signed out")
        finally:
            keyring.send_signal(signal.SIGCONT)
        a11y.find(root, "Connected", timeout=30)
        self.assertFalse(self.shown(root, "Not signed in"))


if __name__ == "__main__":
    main()
