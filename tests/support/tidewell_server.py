"""A real tidewell-server for the Python tests: a free port, a database (SQLite in a
folder of its own unless one is given), users and tokens made with the binary's own
commands, started and waited for until /healthz answers, and stopped."""
import os
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.request


def free_port():
    """A TCP port on 127.0.0.1 that nothing listens on just now."""
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class TidewellServer:
    def __init__(self, binary, database=None, stderr=subprocess.DEVNULL):
        self.binary = binary
        self.folder = None
        if database is None:
            self.folder = tempfile.mkdtemp(prefix="tws-")
            database = "sqlite:" + os.path.join(self.folder, "server.sqlite")
        self.database = database
        self.port = free_port()
        self.base = "http://127.0.0.1:%d" % self.port
        self.proc = None
        self.stderr = stderr

    def cli(self, *args, stdin=None):
        """A command of the binary on this database; what it printed."""
        return subprocess.run([self.binary, *args, "--database", self.database], input=stdin,
                              text=True, check=True, capture_output=True).stdout.strip()

    def add_user(self, name="ann", password="correct horse"):
        self.cli("user", "add", name, stdin=password + "\n")

    def create_token(self, user="ann"):
        return self.cli("token", "create", user)

    def start(self, timeout=20, extra=()):
        self.proc = subprocess.Popen([self.binary, "serve", "--listen",
                                      "127.0.0.1:%d" % self.port, "--database", self.database,
                                      *extra],
                                     stdout=subprocess.DEVNULL, stderr=self.stderr)
        deadline = time.monotonic() + timeout
        while not self.healthy():
            if self.proc.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("tidewell-server did not start on port %d" % self.port)
            time.sleep(0.05)
        return self

    def healthy(self):
        try:
            return urllib.request.urlopen(self.base + "/healthz", timeout=1).status == 200
        except OSError:
            return False

    def stop(self):
        if self.proc and self.proc.poll() is None:
            self.proc.terminate()
            self.proc.wait(15)
        if self.folder:
            shutil.rmtree(self.folder, ignore_errors=True)
