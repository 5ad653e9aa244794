"""A local stand-in for the sync service that records every request: an empty
account on GET, the body echoed on PUT."""
import http.server
import json
import threading
import time

EMPTY = {"/api/v1/tasks": {"data": []}, "/api/v1/habits": {"data": []},
         "/api/v1/pomodoro": {"data": None}}


class Request:
    def __init__(self, method, path, auth, body):
        self.at = time.monotonic()
        self.method, self.path, self.auth, self.body = method, path, auth, body

    def __repr__(self):
        return "%s %s" % (self.method, self.path)


class _Handler(http.server.BaseHTTPRequestHandler):
    def answer(self, status, body):
        data = json.dumps(body).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def record(self, body=None):
        self.server.requests.append(Request(self.command, self.path,
                                            self.headers.get("Authorization"), body))

    def do_GET(self):
        self.record()
        self.answer(200 if self.path in EMPTY else 404, EMPTY.get(self.path, {}))

    def do_PUT(self):
        body = json.loads(self.rfile.read(int(self.headers.get("Content-Length", 0))) or b"null")
        self.record(body)
        self.answer(200, body)

    def log_message(self, *args):
        pass


class RecordingServer(http.server.ThreadingHTTPServer):
    def __init__(self):
        super().__init__(("127.0.0.1", 0), _Handler)
        self.requests = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def address(self):
        return "http://127.0.0.1:%d" % self.server_address[1]

    def stop(self):
        self.shutdown()
        self.server_close()
