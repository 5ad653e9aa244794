#!/usr/bin/python3
"""The real tidewell-server binary as an operator runs it: the command line, a
clean stop that lets a request finish, two processes on one PostgreSQL database,
and SIGKILL in the middle of a stream of PUTs on both engines.

Usage: test_server_processes.py <tidewell-server binary>
PostgreSQL comes from TIDEWELL_TEST_POSTGRES (scripts/test starts one).
"""
import http.client
import json
import os
import random
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from tidewell_server import free_port  # noqa: E402

SERVER = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else None


def habits_body(value):
    return json.dumps([{"icon": "1F4A7", "name": "Water", "color": "#3B82F6", "maxValue": 8,
                        "currentValue": value, "firstTrackerDate": "2026-03-01T07:00:00Z"}])


class Engine:
    """A fresh database on SQLite or on the test cluster's PostgreSQL."""

    def __init__(self, kind, tmp):
        self.kind = kind
        if kind == "sqlite":
            self.url = "sqlite:" + os.path.join(tmp, "server.sqlite")
            return
        cluster = os.environ.get("TIDEWELL_TEST_POSTGRES")
        if not cluster:
            raise AssertionError("no PostgreSQL to test on: scripts/test starts one and sets "
                                 "TIDEWELL_TEST_POSTGRES")
        parsed = urllib.parse.urlparse(cluster)
        self.host = urllib.parse.parse_qs(parsed.query)["host"][0]
        self.user = parsed.username
        self.name = "tws_%x" % random.getrandbits(48)
        self.psql("CREATE DATABASE %s" % self.name)
        self.url = "postgresql://%s@/%s?host=%s" % (self.user, self.name, self.host)

    def psql(self, sql):
        subprocess.run(["psql", "-h", self.host, "-U", self.user, "-d", "postgres", "-qc", sql],
                       check=True, capture_output=True)

    def drop(self):
        if self.kind != "sqlite":
            self.psql("DROP DATABASE IF EXISTS %s WITH (FORCE)" % self.name)


class Server:
    def __init__(self, url, port, *extra, listen="127.0.0.1"):
        self.port = port
        self.proc = subprocess.Popen([SERVER, "serve", "--listen", "%s:%d" % (listen, port),
                                      "--database", url, *extra], stderr=subprocess.PIPE,
                                     text=True)
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline:
            try:
                if self.request("GET", "/healthz")[0] == 200:
                    return
            except OSError:
                time.sleep(0.05)
        self.proc.kill()
        raise AssertionError("the server did not start: " + self.proc.communicate()[1])

    def request(self, method, path, body=None, token=None):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        headers = {"Content-Type": "application/json"}
        if token:
            headers["Authorization"] = "Bearer " + token
        conn.request(method, path, body=body, headers=headers)
        reply = conn.getresponse()
        return reply.status, reply.read()


class ServerProcesses(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="tws-")
        self.engines = []

    def tearDown(self):
        for engine in self.engines:
            engine.drop()
        shutil.rmtree(self.tmp, ignore_errors=True)

    def engine(self, kind):
        engine = Engine(kind, self.tmp)
        self.engines.append(engine)
        return engine

    def cli(self, url, *args, stdin=None):
        return subprocess.run([SERVER, *args, "--database", url], input=stdin,
                              capture_output=True, text=True, timeout=60)

    def user_with_token(self, url, name="ann"):
        self.assertEqual(self.cli(url, "user", "add", name, stdin="correct horse\n").returncode, 0)
        made = self.cli(url, "token", "create", name, "--label", "laptop")
        self.assertEqual(made.returncode, 0, made.stderr)
        return made.stdout.strip()

    def test_command_line(self):
        url = self.engine("sqlite").url
        token = self.user_with_token(url)
        self.assertRegex(token, r"^tw_[A-Za-z0-9_-]{43}$")
        again = self.cli(url, "user", "add", "ann", stdin="another pass\n")
        self.assertEqual((again.returncode, again.stderr.strip()),
                         (1, "tidewell-server: there is already a user named ann"))
        self.assertEqual(self.cli(url, "frobnicate").returncode, 2)
        listed = self.cli(url, "token", "list", "ann").stdout
        self.assertIn("laptop", listed)
        self.assertNotIn(token[3:], listed)

        server = Server(url, free_port())
        try:
            for value in range(1, 4):
                self.assertEqual(server.request("PUT", "/api/v1/habits", habits_body(value),
                                                token)[0], 200)
            history = self.cli(url, "history", "ann", "habits").stdout.splitlines()
            self.assertEqual([line.split("\t")[0] for line in history], ["3", "2", "1"])
            self.assertTrue(history[0].endswith("current"))
            self.assertEqual(self.cli(url, "restore", "ann", "habits", "--version", "1")
                             .returncode, 0)
            _, body = server.request("GET", "/api/v1/habits", token=token)
            self.assertEqual(json.loads(body)["data"][0]["currentValue"], 1)

            token_id = listed.split("\t")[0]
            self.assertEqual(self.cli(url, "token", "revoke", token_id).returncode, 0)
            self.assertEqual(server.request("GET", "/api/v1/habits", token=token)[0], 401)
            self.assertEqual(self.cli(url, "user", "del", "ann").returncode, 0)
            self.assertIn("there is no user named ann",
                          self.cli(url, "history", "ann", "habits").stderr)
        finally:
            server.proc.kill()
            log = server.proc.communicate()[1]
        self.assertNotIn(token, log)

    def test_stop_lets_a_request_finish(self):
        url = self.engine("sqlite").url
        token = self.user_with_token(url)
        server = Server(url, free_port())
        body = habits_body(7).encode()
        conn = socket.create_connection(("127.0.0.1", server.port))
        conn.sendall(b"PUT /api/v1/habits HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer %s\r\n"
                     b"Content-Type: application/json\r\nContent-Length: %d\r\n\r\n"
                     % (token.encode(), len(body)) + body[:10])
        time.sleep(0.3)
        server.proc.send_signal(signal.SIGTERM)
        time.sleep(0.3)
        conn.sendall(body[10:])
        reply = conn.recv(4096)
        self.assertTrue(reply.startswith(b"HTTP/1.1 200"), reply)
        self.assertEqual(server.proc.wait(15), 0)
        self.assertEqual(self.cli(url, "history", "ann", "habits").stdout.count("\n"), 1)

    def test_two_processes_share_one_postgresql(self):
        url = self.engine("postgresql").url
        token = self.user_with_token(url)
        a, b = Server(url, free_port()), Server(url, free_port())
        try:
            for value in range(5):
                writer, reader = (a, b) if value % 2 else (b, a)
                self.assertEqual(writer.request("PUT", "/api/v1/habits", habits_body(value),
                                                token)[0], 200)
                _, body = reader.request("GET", "/api/v1/habits", token=token)
                self.assertEqual(json.loads(body)["data"][0]["currentValue"], value)
        finally:
            a.proc.kill()
            b.proc.kill()
            a.proc.communicate()
            b.proc.communicate()

    def kill_during_puts(self, kind):
        url = self.engine(kind).url
        tokens = [self.user_with_token(url, "user%d" % i) for i in range(4)]
        port = free_port()
        server = Server(url, port)
        acked = {}  # token -> the last value the server acknowledged
        stop = threading.Event()

        def writer(token):
            value = 0
            while not stop.is_set() and value < 250:
                value += 1
                try:
                    status, _ = server.request("PUT", "/api/v1/habits", habits_body(value), token)
                except OSError:
                    return
                if status == 200:
                    acked[token] = value

        threads = [threading.Thread(target=writer, args=(t,)) for t in tokens]
        for t in threads:
            t.start()
        # Somewhere in the middle of the 1,000 PUTs.
        target = random.randint(200, 800)
        while sum(acked.values()) < target and any(t.is_alive() for t in threads):
            time.sleep(0.001)
        server.proc.kill()
        stop.set()
        for t in threads:
            t.join()
        server.proc.communicate()
        self.assertTrue(acked, "no PUT was acknowledged before the kill")

        server = Server(url, port)
        try:
            for token, value in acked.items():
                _, body = server.request("GET", "/api/v1/habits", token=token)
                # An unacknowledged PUT may have landed too, never less than acknowledged.
                self.assertGreaterEqual(json.loads(body)["data"][0]["currentValue"], value)
        finally:
            server.proc.kill()
            server.proc.communicate()

    def test_logs_keep_no_secret(self):
        url = self.engine("sqlite").url
        token = self.user_with_token(url)
        server = Server(url, free_port(), "--access-log")
        try:
            conn = http.client.HTTPConnection("127.0.0.1", server.port, timeout=10)
            conn.request("GET", "/api/v1/habits?secretquery=1",
                         headers={"Authorization": "Bearer " + token,
                                  "Cookie": "tw_session=secretcookie"})
            reply = conn.getresponse()
            reply.read()
            self.assertEqual(reply.status, 200)
            conn.request("POST", "/en/app/signin",
                         body="form=n&next=%2Fen%2Fapp%2Ftokens&name=ann&password=secretpass",
                         headers={"Content-Type": "application/x-www-form-urlencoded",
                                  "Cookie": "tw_form=n"})
            self.assertEqual(conn.getresponse().status, 401)
        finally:
            server.proc.terminate()
            log = server.proc.communicate()[1]
        self.assertIn('127.0.0.1 "GET /api/v1/habits" 200', log)
        self.assertIn('failed sign-in for user "ann" from 127.0.0.1', log)
        for secret in (token, token[3:], "secretquery", "secretcookie", "secretpass"):
            self.assertNotIn(secret, log)

    def test_refusals_at_start_and_at_the_door(self):
        url = self.engine("sqlite").url
        for args, text in ((["--schemes", "tidewell,https"], "opens in the browser"),
                           (["--database-password-file", "/nonexistent"], "password file"),
                           (["--public-url", "https://sync.example.org/sub"], "root"),
                           (["--trusted-proxy", "proxy.example"], "--trusted-proxy")):
            run = subprocess.run([SERVER, "serve", "--listen", "127.0.0.1:%d" % free_port(),
                                  "--database", url, *args], capture_output=True, text=True,
                                 timeout=30)
            self.assertEqual(run.returncode, 1, args)
            self.assertIn(text, run.stderr)

        # A network address without TLS is served, with a warning.
        exposed = Server(url, free_port(), listen="0.0.0.0")
        exposed.proc.terminate()
        self.assertIn("warning: serving plain HTTP", exposed.proc.communicate()[1])
        quiet = Server(url, free_port())
        quiet.proc.terminate()
        self.assertNotIn("warning", quiet.proc.communicate()[1])

        # Over TLS a connection beyond the cap is closed, never answered in plain text.
        cert, key = os.path.join(self.tmp, "cert.pem"), os.path.join(self.tmp, "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                        "-subj", "/CN=localhost", "-keyout", key, "-out", cert],
                       check=True, capture_output=True)
        port = free_port()
        proc = subprocess.Popen([SERVER, "serve", "--listen", "127.0.0.1:%d" % port, "--database",
                                 url, "--tls-cert", cert, "--tls-key", key,
                                 "--max-connections", "1"], stderr=subprocess.PIPE, text=True)
        try:
            context = ssl.create_default_context()
            context.check_hostname = False
            context.verify_mode = ssl.CERT_NONE
            deadline = time.monotonic() + 20
            while True:
                try:
                    first = context.wrap_socket(socket.create_connection(("127.0.0.1", port)))
                    break
                except OSError:
                    self.assertLess(time.monotonic(), deadline, "the TLS server did not start")
                    time.sleep(0.05)
            first.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")
            self.assertTrue(first.recv(4096).startswith(b"HTTP/1.1 200"))
            second = socket.create_connection(("127.0.0.1", port), timeout=10)
            self.assertEqual(second.recv(4096), b"")
            second.close()
            first.close()
        finally:
            proc.terminate()
            proc.communicate()

    def test_kill_during_puts_sqlite(self):
        self.kill_during_puts("sqlite")

    def test_kill_during_puts_postgresql(self):
        self.kill_during_puts("postgresql")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
