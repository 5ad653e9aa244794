#!/usr/bin/python3
"""End-to-end: signing in with a pasted token against a local HTTP server that
records every request. The token is tested with one authorised request, the hub
then says "Connected", and the pull that follows a sign-in reaches the server.

Usage: test_sync.py <tidewell binary>
"""
import http.server
import json
import os
import sys
import threading

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import wait_for  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402

ANSWERS = {"/api/v1/tasks": {"data": []}, "/api/v1/habits": {"data": []},
           "/api/v1/pomodoro": {"data": None}}


class Recorder(http.server.BaseHTTPRequestHandler):
    requests = []

    def do_GET(self):
        type(self).requests.append((self.command, self.path, self.headers.get("Authorization")))
        body = json.dumps(ANSWERS.get(self.path, {"error": "not found"})).encode()
        self.send_response(200 if self.path in ANSWERS else 404)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *args):
        pass


class SyncOnTheDesktop(TidewellCase):
    tray = False

    @classmethod
    def before_launch(cls):
        cls.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Recorder)
        threading.Thread(target=cls.server.serve_forever, daemon=True).start()

    @classmethod
    def tearDownClass(cls):
        cls.server.shutdown()
        cls.server.server_close()
        super().tearDownClass()

    def test_token_sign_in_reaches_the_server(self):
        a11y = self.a11y
        a11y.press(a11y.find(self.root, "Sign in", role="push button"))
        a11y.press(a11y.find(self.root, "Advanced"))
        address = "http://127.0.0.1:%d" % self.server.server_address[1]
        a11y.find(self.root, "Server URL", role="text").queryEditableText().setTextContents(address)
        a11y.find(self.root, "API token", role="password text").queryEditableText().setTextContents("tok-e2e")
        a11y.press(a11y.find(self.root, "Sign in with token"))

        a11y.find(self.root, "Connected", timeout=15)
        seen = lambda path: [r for r in Recorder.requests if r[1] == path]  # noqa: E731
        self.assertTrue(wait_for(lambda: all(seen(p) for p in ANSWERS)),
                        "requests: %r" % Recorder.requests)
        self.assertTrue(all(auth == "Bearer tok-e2e" for _, _, auth in Recorder.requests),
                        Recorder.requests)


if __name__ == "__main__":
    main()
