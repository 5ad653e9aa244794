#!/usr/bin/python3
"""End-to-end: the real app signed in to a real tidewell-server on PostgreSQL, and
the database stops for ten seconds. During the outage the app shows a sync error
but keeps its token and stays signed in (the server answers 503, never 401, which
would make the app throw its token away); once the database is back the server
reconnects by itself and the app's next push lands.

Usage: test_server_outage.py <tidewell binary>; TIDEWELL_SERVER_BINARY names the server.
"""
import base64
import http.client
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from tidewell_server import TidewellServer  # noqa: E402
from desktop import holds, wait_for  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402

SERVER = os.environ.get("TIDEWELL_SERVER_BINARY")
CLUSTER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts",
                       "postgres-for-tests")


def cluster(action, where):
    return subprocess.run([CLUSTER, action, where], check=True, capture_output=True,
                          text=True).stdout.strip()


class DatabaseOutage(TidewellCase):
    @classmethod
    def before_launch(cls):
        cls.pg = tempfile.mkdtemp(prefix="tws-pg-")
        os.rmdir(cls.pg)  # the script makes it, owned by whoever runs PostgreSQL
        cls.database = cluster("start", cls.pg)
        cls.log = tempfile.TemporaryFile(mode="w+")
        cls.server = TidewellServer(SERVER, cls.database, stderr=cls.log)
        cls.server.add_user()
        cls.token = cls.server.create_token()
        cls.port = cls.server.start().port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.log.close()
        subprocess.run([CLUSTER, "stop", cls.pg], capture_output=True)
        shutil.rmtree(cls.pg, ignore_errors=True)
        super().tearDownClass()

    @classmethod
    def get(cls, path):
        """The status and JSON body of an authorised GET; 0 when nothing answered."""
        try:
            conn = http.client.HTTPConnection("127.0.0.1", cls.port, timeout=10)
            conn.request("GET", path, headers={"Authorization": "Bearer " + cls.token})
            reply = conn.getresponse()
            return reply.status, json.loads(reply.read() or b"null")
        except (OSError, ValueError):
            return 0, None

    def sync_error(self):
        """The hub's sync error line, or None."""
        import pyatspi
        found = pyatspi.utils.findDescendant(
            self.root, lambda o: o is not None and "failed: HTTP " in o.name
            and o.getState().contains(pyatspi.STATE_SHOWING))
        return found.name if found is not None else None

    def count(self):
        """Water's count on the server; None when it has none (yet) or cannot say."""
        status, body = self.get("/api/v1/habits")
        habits = body["data"] if status == 200 else []
        return habits[0]["currentValue"] if habits else None

    def test_app_stays_signed_in_through_a_database_outage(self):
        a11y = self.a11y
        self.sign_in_with_token(self.root, "http://127.0.0.1:%d" % self.port, self.token)
        switch, icon = self.in_popup(self.root, "Habits")
        self.add_first_habit(self.root, "Water", icon)
        add = a11y.find_in(self.root, "Water", "Add one")
        a11y.press(add)
        self.assertTrue(wait_for(lambda: self.count() == 1, 10), self.get("/api/v1/habits"))

        cluster("halt", self.pg)
        stopped = time.monotonic()
        status, body = self.get("/api/v1/habits")
        self.assertEqual(status, 503, body)
        a11y.press(add)
        self.assertTrue(wait_for(lambda: self.sync_error() is not None, 15),
                        "no sync error shown during the outage")
        self.assertIn("HTTP 503", self.sync_error())
        # Signed in still, and the token is where it was.
        a11y.find(self.root, "Connected")
        stored = self.desktop.run(["secret-tool", "lookup", "user", "api-token-v2",
                                   "server", "com.brenlow.tidewell"])
        # qtkeychain keeps the secret base64-encoded.
        self.assertEqual(base64.b64decode(stored.stdout.strip()).decode(), self.token)

        # The rest of the ten seconds: the error stays said while the server is away.
        self.assertTrue(holds(lambda: self.sync_error() is not None,
                              max(0.0, 10 - (time.monotonic() - stopped)), interval=0.5),
                        "the sync error went away during the outage")
        cluster("resume", self.pg)
        self.assertTrue(wait_for(lambda: self.get("/healthz")[0] == 200, 10),
                        "/healthz did not recover by itself")
        a11y.press(add)
        self.assertTrue(wait_for(lambda: self.count() == 3, 15), self.get("/api/v1/habits"))
        self.close_popup(switch, icon)
        # A push that lands leaves the last error be; a Sync clears it.
        a11y.press(a11y.find(self.root, "Sync", role="push button"))
        self.assertTrue(wait_for(lambda: self.sync_error() is None, 10), self.sync_error())
        a11y.find(self.root, "Connected")

        self.log.seek(0)
        log = self.log.read()
        # One line when it failed, one when it came back: not one per request.
        self.assertEqual(log.count("the database failed"), 1, log)
        self.assertEqual(log.count("the database answers again"), 1, log)


if __name__ == "__main__":
    main()
