#!/usr/bin/python3
"""The packages as a user and an operator meet them: installs dist/*.deb with
apt-get, checks the installed files (the app starts from /usr/bin and shows its
hub under Xvfb, the server answers /healthz on an embedded database, the unit,
the metainfo and the desktop entry validate, lintian finds no error), then
purges both and checks that nothing of theirs is left.

Usage: tests/package/smoke.py   (as root, or with sudo; after scripts/package)
"""
import glob
import json
import os
import pwd
import re
import subprocess
import sys
import tempfile
import unittest
import urllib.request

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "tests", "e2e"))
from desktop import Desktop, wait_for  # noqa: E402
sys.path.insert(0, os.path.join(ROOT, "tests", "support"))
from tidewell_server import free_port  # noqa: E402

SUDO = [] if os.geteuid() == 0 else ["sudo"]
PACKAGES = ("tidewell", "tidewell-server")


def run(cmd, **kw):
    return subprocess.run(cmd, capture_output=True, text=True, **kw)


class InstalledPackages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.debs = sorted(glob.glob(os.path.join(ROOT, "dist", "*.deb")))
        names = sorted(os.path.basename(d).split("_")[0] for d in cls.debs)
        if names != sorted(PACKAGES):
            raise AssertionError("dist/ must hold the two packages (scripts/package): %s" % names)
        installed = run(SUDO + ["apt-get", "install", "-y", "-q", "--no-install-recommends"]
                        + cls.debs, env=dict(os.environ, DEBIAN_FRONTEND="noninteractive"))
        if installed.returncode != 0:
            raise AssertionError("apt-get install failed:\n" + installed.stdout[-3000:]
                                 + installed.stderr[-3000:])
        cls.files = {p: run(["dpkg", "-L", p]).stdout.split("\n") for p in PACKAGES}

    def test_1_the_app(self):
        version = run(["/usr/bin/tidewell", "--version"])
        self.assertEqual(version.returncode, 0, version.stderr)
        self.assertRegex(version.stdout, r"^tidewell \d+\.\d+")
        desktop = Desktop(tray=False)
        try:
            app = subprocess.Popen(["/usr/bin/tidewell"], env=desktop.env,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            shown = wait_for(lambda: desktop.window_ids("^Tidewell$"), 30)
            app.terminate()
            log = app.communicate(timeout=15)[1]
            self.assertTrue(shown, "the installed app showed no hub window:\n" + log[-2000:])
            self.assertEqual(app.returncode, 0, log[-2000:])
            # Sounds and the network module come from the package, not a build tree.
            self.assertNotIn("AudioService:", log)
        finally:
            desktop.close()
        for path in ("/usr/share/applications/com.brenlow.tidewell.desktop",
                     "/usr/share/icons/hicolor/scalable/apps/com.brenlow.tidewell.svg",
                     "/usr/share/icons/hicolor/256x256/apps/com.brenlow.tidewell.png",
                     "/usr/share/man/man1/tidewell.1.gz",
                     "/usr/share/bash-completion/completions/tidewell",
                     "/usr/share/tidewell/Sounds/finishPomodoro.wav"):
            self.assertTrue(os.path.exists(path), path)
        self.assertTrue(glob.glob("/usr/lib/*/tidewell/tidewell_sound.so"))
        self.assertTrue(glob.glob("/usr/lib/*/tidewell/tidewell_network.so"))

    def test_2_the_server(self):
        account = pwd.getpwnam("tidewell-server")
        self.assertEqual(account.pw_shell, "/usr/sbin/nologin")
        self.assertEqual(os.stat("/var/lib/tidewell-server").st_uid, account.pw_uid)
        for path in ("/etc/default/tidewell-server",
                     "/usr/share/doc/tidewell-server/examples/nginx.conf",
                     "/usr/share/doc/tidewell-server/examples/Caddyfile"):
            self.assertTrue(os.path.exists(path), path)
        with tempfile.TemporaryDirectory() as tmp:
            port = free_port()
            server = subprocess.Popen(["/usr/bin/tidewell-server", "serve", "--listen",
                                       "127.0.0.1:%d" % port, "--database",
                                       "sqlite:" + os.path.join(tmp, "server.sqlite")],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            try:
                def healthy():
                    try:
                        with urllib.request.urlopen("http://127.0.0.1:%d/healthz" % port,
                                                    timeout=2) as answer:
                            return json.load(answer) == {"ok": True}
                    except OSError:
                        return False
                self.assertTrue(wait_for(healthy, 20), "no answer on /healthz")
            finally:
                server.terminate()
                self.assertEqual(server.wait(20), 0, server.stderr.read())

    def test_3_validators(self):
        unit = "/lib/systemd/system/tidewell-server.service"
        checks = [
            ["systemd-analyze", "verify", unit],
            ["appstreamcli", "validate", "--pedantic", "--no-net",
             "/usr/share/metainfo/com.brenlow.tidewell.metainfo.xml"],
            ["desktop-file-validate", "/usr/share/applications/com.brenlow.tidewell.desktop"],
            ["lintian", "--fail-on", "error", "--suppress-tags",
             "bad-distribution-in-changes-file"] + self.debs,
        ]
        for cmd in checks:
            with self.subTest(cmd[0]):
                result = run(cmd)
                self.assertEqual(result.returncode, 0, "%s\n%s%s" % (" ".join(cmd), result.stdout,
                                                                   result.stderr))
                if cmd[0] == "systemd-analyze":
                    # verify also exits 0 on some warnings about the unit itself.
                    self.assertNotIn("tidewell-server.service:", result.stderr)
                if cmd[0] == "desktop-file-validate":
                    self.assertEqual(result.stdout.strip(), "")
        with self.subTest("systemd-analyze security"):
            # The unit's sandbox as systemd rates it, from 0 (shut in) to 10.
            result = run(["systemd-analyze", "security", "--offline=yes", unit])
            score = re.search(r"Overall exposure level for tidewell-server\.service: (\d+\.\d+)",
                              result.stdout)
            self.assertIsNotNone(score, result.stdout + result.stderr)
            self.assertLessEqual(float(score.group(1)), 2.0, result.stdout)

    def test_4_purge_leaves_nothing(self):
        purged = run(SUDO + ["apt-get", "purge", "-y", "-q"] + list(PACKAGES),
                     env=dict(os.environ, DEBIAN_FRONTEND="noninteractive"))
        self.assertEqual(purged.returncode, 0, purged.stdout + purged.stderr)
        left = [f for files in self.files.values() for f in files
                if f and os.path.lexists(f) and not os.path.isdir(f)]
        self.assertEqual(left, [])
        for path in ("/var/lib/tidewell-server",
                     "/etc/systemd/system/multi-user.target.wants/tidewell-server.service",
                     "/usr/lib/x86_64-linux-gnu/tidewell", "/usr/share/tidewell"):
            self.assertFalse(os.path.lexists(path), path)
        with self.assertRaises(KeyError):
            pwd.getpwnam("tidewell-server")
        strays = run(["find", "/etc", "/usr", "/var/lib", "/opt", "-xdev", "-name", "*tidewell*",
                      "-not", "-path", "/var/lib/dpkg/*"]).stdout.split()
        self.assertEqual(strays, [])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
