#!/usr/bin/python3
"""tidewell-server behind the reverse proxies of docs/reverse-proxy, each run as
the current user on ports and files of its own: the snippets as shipped (only
ports, certificate and temporary paths changed) must pass the proxy's own check,
carry HTTPS to the server so that it sets Secure __Host- cookies and HSTS, and
name the real client in the server's log however the client fills the
forwarding headers. Also what the server believes of those headers without a
proxy in between.

Usage: test_reverse_proxy.py <tidewell-server binary>
"""
import http.client
import os
import re
import shutil
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
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SNIPPETS = os.path.join(ROOT, "docs", "reverse-proxy")
# Loopback, but not the proxies' address: the server must not trust it.
OUTSIDER = "127.0.0.2"
SPOOFED = "203.0.113.7"
UNVERIFIED = ssl._create_unverified_context()
# /usr/sbin is not on every user's PATH.
NGINX = shutil.which("nginx") or "/usr/sbin/nginx"


def wait_until(condition, timeout=20):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if condition():
            return True
        time.sleep(0.05)
    return False


def replace(text, pattern, replacement, flags=re.M):
    """re.sub that insists on a match, so a changed snippet fails loudly instead
    of being tested half-rewritten."""
    out, count = re.subn(pattern, replacement, text, flags=flags)
    if not count:
        raise AssertionError("the snippet no longer has %r" % pattern)
    return out


class Connection(http.client.HTTPSConnection):
    """HTTP(S) to localhost:port from a chosen loopback address."""

    def __init__(self, port, source="127.0.0.1", tls=True):
        super().__init__("localhost", port, timeout=10, context=UNVERIFIED,
                         source_address=(source, 0))
        self.tls = tls

    def connect(self):
        self.sock = socket.create_connection(("127.0.0.1", self.port), self.timeout,
                                             self.source_address)
        if self.tls:
            self.sock = self._context.wrap_socket(self.sock, server_hostname="localhost")


def fetch(port, method, path, body=None, headers=None, source="127.0.0.1", tls=True):
    conn = Connection(port, source, tls)
    try:
        conn.request(method, path, body=body, headers=headers or {})
        reply = conn.getresponse()
        return reply.status, reply.headers, reply.read().decode()
    finally:
        conn.close()


class Server:
    """tidewell-server on a fresh SQLite database, its stderr kept line by line."""

    def __init__(self, tmp, *options):
        self.port = free_port()
        self.lines = []
        self.changed = threading.Condition()
        database = "sqlite:" + os.path.join(tmp, "server-%d.sqlite" % self.port)
        self.proc = subprocess.Popen([SERVER, "serve", "--listen", "127.0.0.1:%d" % self.port,
                                      "--database", database, "--access-log", *options],
                                     stderr=subprocess.PIPE, text=True)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

        def healthy():
            try:
                return fetch(self.port, "GET", "/healthz", tls=False)[0] == 200
            except OSError:
                return self.proc.poll() is not None
        if not wait_until(healthy) or self.proc.poll() is not None:
            self.stop()
            raise AssertionError("the server did not start:\n" + self.log())

    def _read(self):
        for line in self.proc.stderr:
            with self.changed:
                self.lines.append(line.rstrip("\n"))
                self.changed.notify_all()

    def log(self):
        with self.changed:
            return "\n".join(self.lines)

    def wait_for_line(self, needle, timeout=10):
        with self.changed:
            return self.changed.wait_for(
                lambda: any(needle in line for line in self.lines), timeout)

    def stop(self):
        self.proc.terminate()
        try:
            self.proc.wait(15)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        self.reader.join(10)
        self.proc.stderr.close()


class ReverseProxy(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="tws-proxy-")
        # nginx started as root hands its requests to workers running as nobody.
        os.chmod(self.tmp, 0o755)
        self.stoppers = []

    def tearDown(self):
        for stop in reversed(self.stoppers):
            stop()
        shutil.rmtree(self.tmp, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.tmp, name)

    def server(self, *options):
        server = Server(self.tmp, *options)
        self.stoppers.append(server.stop)
        return server

    def start(self, cmd, ready_port, **kw):
        log = open(self.path(os.path.basename(cmd[0]) + ".log"), "w")
        proc = subprocess.Popen(cmd, stdout=log, stderr=subprocess.STDOUT, **kw)

        def stop():
            proc.terminate()
            try:
                proc.wait(15)
            except subprocess.TimeoutExpired:
                proc.kill()
                proc.wait()
            log.close()
        self.stoppers.append(stop)

        def listening():
            try:
                socket.create_connection(("127.0.0.1", ready_port), 1).close()
                return True
            except OSError:
                return proc.poll() is not None
        if not wait_until(listening) or proc.poll() is not None:
            with open(log.name) as f:
                self.fail("%s did not start:\n%s" % (cmd[0], f.read()))

    def self_signed(self):
        cert, key = self.path("cert.pem"), self.path("key.pem")
        made = subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                               "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1",
                               "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                               "-keyout", key, "-out", cert], capture_output=True, text=True)
        self.assertEqual(made.returncode, 0, made.stderr)
        return cert, key

    def failed_sign_in(self, port, name, source="127.0.0.1", extra=None, tls=True,
                       origin=None):
        """A wrong password posted the way a browser does, after fetching the form."""
        status, headers, page = fetch(port, "GET", "/en/app/signin", source=source, tls=tls)
        self.assertEqual(status, 200, page)
        nonce = re.search(r'name="form" value="([^"]+)"', page).group(1)
        cookie = headers["Set-Cookie"].split(";")[0]
        body = urllib.parse.urlencode({"form": nonce, "next": "/en/app/tokens", "name": name,
                                       "password": "wrongpassword"})
        sent = {"Content-Type": "application/x-www-form-urlencoded", "Cookie": cookie}
        if origin:
            sent["Origin"] = origin
        sent.update(extra or {})
        status, _, page = fetch(port, "POST", "/en/app/signin", body, sent, source, tls)
        self.assertEqual(status, 401, page)

    def assert_logged_from(self, server, name, client):
        line = 'failed sign-in for user "%s" from ' % name
        self.assertTrue(server.wait_for_line(line), server.log())
        logged = [entry for entry in server.log().splitlines() if line in entry][-1]
        self.assertTrue(logged.endswith(line + client), logged)

    def assert_behind_proxy(self, server, port):
        """What every proxy in front must give: HTTPS as the server's scheme, and
        the client it saw, not the one a client claims to be."""
        status, headers, body = fetch(port, "GET", "/healthz")
        self.assertEqual((status, body.strip()), (200, '{"ok":true}'))
        self.assertEqual(headers["Strict-Transport-Security"], "max-age=31536000")
        status, headers, _ = fetch(port, "GET", "/en/app/signin")
        self.assertEqual(status, 200)
        cookie = [part.strip() for part in headers["Set-Cookie"].split(";")]
        self.assertTrue(cookie[0].startswith("__Host-tw_form="), cookie)
        self.assertIn("Secure", cookie)
        self.assertIn("Path=/", cookie)
        self.assertIn("Strict-Transport-Security", headers)

        origin = "https://localhost:%d" % port
        # The proxy's address is trusted, so the server walks past it; a client
        # from anywhere else must be named as itself whatever it writes.
        lies = {"X-Forwarded-For": SPOOFED, "Forwarded": "for=%s;proto=https" % SPOOFED}
        self.failed_sign_in(port, "outsider", OUTSIDER, lies, origin=origin)
        self.assert_logged_from(server, "outsider", OUTSIDER)
        self.assertTrue(server.wait_for_line('%s "POST /en/app/signin" 401' % OUTSIDER),
                        server.log())
        # A client on the proxy's own address is the case where a proxy that
        # appends to the client's header would let the server believe it.
        self.failed_sign_in(port, "neighbour", "127.0.0.1", lies, origin=origin)
        self.assert_logged_from(server, "neighbour", "127.0.0.1")
        self.assertNotIn(SPOOFED, server.log())

    def test_nginx(self):
        http_port, https_port = free_port(), free_port()
        server = self.server("--public-url", "https://localhost:%d" % https_port,
                             "--trusted-proxy", "127.0.0.1")
        cert, key = self.self_signed()
        with open(os.path.join(SNIPPETS, "nginx.conf")) as f:
            site = f.read()
        site = replace(site, r"^\s*listen \[::\].*\n", "")
        site = replace(site, r"listen 80;", "listen 127.0.0.1:%d;" % http_port)
        site = replace(site, r"listen 443 ssl;", "listen 127.0.0.1:%d ssl;" % https_port)
        site = replace(site, r"ssl_certificate .*;", "ssl_certificate %s;" % cert)
        site = replace(site, r"ssl_certificate_key .*;", "ssl_certificate_key %s;" % key)
        site = replace(site, r"proxy_pass http://127\.0\.0\.1:8080;",
                       "proxy_pass http://127.0.0.1:%d;" % server.port)
        site = replace(site, r"server_name sync\.example\.org;", "server_name localhost;")
        temp = "".join("%s_temp_path %s;\n" % (kind, self.path(kind))
                       for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        # Started as root, nginx runs its workers as this user (Debian has no group nobody).
        user = "user nobody nogroup;\n" if os.geteuid() == 0 else ""
        config = self.path("nginx.conf")
        with open(config, "w") as f:
            f.write("%sdaemon off;\npid %s;\nerror_log stderr;\nevents {}\n"
                    "http {\naccess_log off;\n%s%s}\n" % (user, self.path("nginx.pid"), temp, site))
        nginx = [NGINX, "-p", self.tmp, "-e", "stderr", "-c", config]
        checked = subprocess.run(nginx + ["-t"], capture_output=True, text=True)
        self.assertEqual(checked.returncode, 0, checked.stderr)
        self.start(nginx, https_port)

        self.assert_behind_proxy(server, https_port)
        status, headers, _ = fetch(http_port, "GET", "/en/app/signin?next=%2F", tls=False)
        self.assertEqual((status, headers["Location"]),
                         (301, "https://localhost/en/app/signin?next=%2F"))

    def test_caddy(self):
        http_port, https_port = free_port(), free_port()
        server = self.server("--public-url", "https://localhost:%d" % https_port,
                             "--trusted-proxy", "127.0.0.1")
        env = dict(os.environ, HOME=self.tmp, XDG_CONFIG_HOME=self.path("config"),
                   XDG_DATA_HOME=self.path("data"))
        shipped = os.path.join(SNIPPETS, "Caddyfile")
        # As shipped, since validating neither binds a port nor asks for a certificate.
        checked = subprocess.run(["caddy", "validate", "--config", shipped, "--adapter",
                                  "caddyfile"], capture_output=True, text=True, env=env)
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
        with open(shipped) as f:
            site = f.read()
        site = replace(site, r"^sync\.example\.org \{", "localhost {\n\tbind 127.0.0.1")
        site = replace(site, r"reverse_proxy 127\.0\.0\.1:8080",
                       "reverse_proxy 127.0.0.1:%d" % server.port)
        # Its own CA for localhost, kept here and never put into the system's trust.
        config = self.path("Caddyfile")
        with open(config, "w") as f:
            f.write("{\n\tadmin off\n\tskip_install_trust\n\thttp_port %d\n\thttps_port %d\n"
                    "\tstorage file_system %s\n}\n%s"
                    % (http_port, https_port, self.path("caddy"), site))
        self.start(["caddy", "run", "--config", config, "--adapter", "caddyfile"], https_port,
                   env=env)

        def serving():
            try:
                return fetch(https_port, "GET", "/healthz")[0] == 200
            except (OSError, ssl.SSLError):
                return False
        # The port opens before the certificate of its own CA is ready.
        self.assertTrue(wait_until(serving), "Caddy does not serve https")
        self.assert_behind_proxy(server, https_port)

    def test_forwarding_headers_without_a_proxy(self):
        lie = {"X-Forwarded-For": SPOOFED}
        alone = self.server()
        self.failed_sign_in(alone.port, "x", extra=lie, tls=False)
        self.assert_logged_from(alone, "x", "127.0.0.1")

        trusting = self.server("--trusted-proxy", "127.0.0.1")
        self.failed_sign_in(trusting.port, "x", extra=lie, tls=False)
        self.assert_logged_from(trusting, "x", SPOOFED)
        self.failed_sign_in(trusting.port, "y", OUTSIDER, lie, tls=False)
        self.assert_logged_from(trusting, "y", OUTSIDER)
        # Without --public-url it is plain http unless a trusted proxy says otherwise.
        _, headers, _ = fetch(trusting.port, "GET", "/en/app/signin", tls=False)
        self.assertTrue(headers["Set-Cookie"].startswith("tw_form="), headers["Set-Cookie"])
        _, headers, _ = fetch(trusting.port, "GET", "/en/app/signin", tls=False,
                              headers={"X-Forwarded-Proto": "https"})
        self.assertTrue(headers["Set-Cookie"].startswith("__Host-tw_form="),
                        headers["Set-Cookie"])
        _, headers, _ = fetch(trusting.port, "GET", "/en/app/signin", source=OUTSIDER,
                              tls=False, headers={"X-Forwarded-Proto": "https"})
        self.assertTrue(headers["Set-Cookie"].startswith("tw_form="), headers["Set-Cookie"])


if __name__ == "__main__":
    if not SERVER:
        sys.exit(__doc__)
    unittest.main(argv=[sys.argv[0], "-v"])
