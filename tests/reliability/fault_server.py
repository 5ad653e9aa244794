"""A sync server that misbehaves on demand, on raw sockets so that it can refuse,
reset, stall, trickle and lie in every way an HTTP peer can. `mode` picks what the
next request gets; every request is recorded with its Authorization header."""
import json
import socket
import ssl
import struct
import threading
import time

# An account holding one habit, so that the pull after sign-in keeps local data.
ACCOUNT = {"/api/v1/tasks": {"data": []},
           "/api/v1/habits": {"data": [{"icon": "1F4A7", "name": "Water", "color": "#0A84FF",
                                        "maxValue": 8, "currentValue": 3,
                                        "firstTrackerDate": "2026-01-01T08:00:00Z"}]},
           "/api/v1/pomodoro": {"data": None}}
REASONS = {200: "OK", 204: "No Content", 302: "Found", 401: "Unauthorized", 403: "Forbidden",
           404: "Not Found", 500: "Internal Server Error"}


class FaultServer:
    def __init__(self, host="127.0.0.1", tls_context=None):
        self.host = host
        self.tls = tls_context
        self.mode = "ok"
        self.redirect_to = None
        self.requests = []  # (method, path, authorization)
        self._lock = threading.Lock()
        self._stop = threading.Event()
        self._listener = None
        self.port = 0
        self.listen()

    @property
    def address(self):
        return "%s://%s:%d" % ("https" if self.tls else "http", self.host, self.port)

    def listen(self):
        s = socket.socket()
        s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        s.bind((self.host, self.port))
        s.listen(16)
        self.port = s.getsockname()[1]
        self._listener = s
        threading.Thread(target=self._accept, args=(s,), daemon=True).start()

    def refuse(self):
        """Stops listening, so that connections are refused, until listen()."""
        s, self._listener = self._listener, None
        s.shutdown(socket.SHUT_RDWR)
        s.close()

    def stop(self):
        self._stop.set()
        if self._listener:
            self.refuse()

    def _accept(self, listener):
        while not self._stop.is_set():
            try:
                conn, _ = listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(conn,), daemon=True).start()

    def _serve(self, conn):
        try:
            if self.tls:
                conn = self.tls.wrap_socket(conn, server_side=True)
            conn.settimeout(10)
            head = b""
            while b"\r\n\r\n" not in head and len(head) < 65536:
                chunk = conn.recv(4096)
                if not chunk:
                    return
                head += chunk
            lines = head.split(b"\r\n\r\n")[0].decode("latin-1").split("\r\n")
            method, path = lines[0].split(" ")[:2]
            headers = dict((k.strip().lower(), v.strip()) for k, v in
                           (line.split(":", 1) for line in lines[1:] if ":" in line))
            with self._lock:
                self.requests.append((method, path, headers.get("authorization")))
            self._answer(conn, self.mode, path)
        except (OSError, ssl.SSLError, ValueError):
            pass
        finally:
            try:
                conn.close()
            except OSError:
                pass

    @staticmethod
    def _send(conn, status, body=b"", content_type="application/json", extra=()):
        head = ["HTTP/1.1 %d %s" % (status, REASONS.get(status, "Status")),
                "Content-Length: %d" % len(body), "Connection: close"]
        if body or status != 204:
            head.append("Content-Type: " + content_type)
        head += list(extra)
        conn.sendall(("\r\n".join(head) + "\r\n\r\n").encode() + body)

    def _answer(self, conn, mode, path):
        if mode == "ok":
            self._send(conn, 200, json.dumps(ACCOUNT.get(path, {"ok": True})).encode())
        elif mode == "reset":
            conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        elif mode == "stall":
            while not self._stop.is_set() and self.mode == "stall":
                time.sleep(0.1)
        elif mode == "trickle":
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                         b"Content-Length: 100000\r\n\r\n")
            while not self._stop.is_set() and self.mode == "trickle":
                conn.sendall(b" ")
                time.sleep(1)
        elif mode.startswith("status "):
            status = int(mode.split()[1])
            body = b"" if status == 204 else json.dumps({"error": "status %d" % status}).encode()
            self._send(conn, status, body)
        elif mode == "html":
            self._send(conn, 200, b"<!DOCTYPE html><html><body><h1>Welcome</h1></body></html>",
                       "text/html; charset=utf-8")
        elif mode == "truncated":
            self._send(conn, 200, b'{"data": [{"id": "0b7c', )
        elif mode == "huge":
            size = 50 * 1024 * 1024
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                         b"Content-Length: %d\r\n\r\n" % size)
            block = b'{"data": [' + b" " * (1024 * 1024 - 10)
            for _ in range(50):
                conn.sendall(block)
                block = b" " * len(block)
        elif mode == "redirect":
            self._send(conn, 302, b"", extra=["Location: " + self.redirect_to + path])
