#!/usr/bin/python3
"""End-to-end: "Connect via browser" from the real app to the real tidewell-server.
The desktop's browser is a stand-in that records the URL the app opens; the test
completes the server's pages in Chromium, takes the tidewell://auth callback the
server redirects to, and hands it to `tidewell <url>` as the desktop would. The
hub then says "Connected" and the pull has happened.

Usage: test_browser_sign_in.py <tidewell binary>; TIDEWELL_SERVER_BINARY names the server.
"""
import json
import os
import subprocess
import sys
import tempfile
import urllib.parse
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from tidewell_server import TidewellServer  # noqa: E402
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../server"))
from desktop import wait_for  # noqa: E402
from test_web_pages import start_browser  # noqa: E402
from tidewell_case import APP, TidewellCase, main  # noqa: E402

from selenium.webdriver.common.by import By  # noqa: E402

SERVER = os.environ.get("TIDEWELL_SERVER_BINARY")


class BrowserSignIn(TidewellCase):
    tray = False

    @classmethod
    def before_launch(cls):
        cls.data = tempfile.mkdtemp(prefix="tws-browser-")
        cls.server = TidewellServer(SERVER)
        cls.server.add_user()
        cls.server.start()
        cls.port, cls.base = cls.server.port, cls.server.base

        # The desktop's web browser, for this HOME: it writes down what it was asked to open.
        env = cls.desktop.env
        cls.opened = os.path.join(cls.data, "opened.txt")
        recorder = os.path.join(cls.data, "browser.sh")
        with open(recorder, "w") as f:
            f.write("#!/bin/sh\nprintf '%%s\\n' \"$1\" >> %s\n" % cls.opened)
        os.chmod(recorder, 0o755)
        apps = os.path.join(env["XDG_DATA_HOME"], "applications")
        os.makedirs(apps, exist_ok=True)
        with open(os.path.join(apps, "recorder.desktop"), "w") as f:
            f.write("[Desktop Entry]\nType=Application\nName=Recorder\nExec=%s %%u\n"
                    "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n" % recorder)
        os.makedirs(env["XDG_CONFIG_HOME"], exist_ok=True)
        with open(os.path.join(env["XDG_CONFIG_HOME"], "mimeapps.list"), "w") as f:
            f.write("[Default Applications]\nx-scheme-handler/http=recorder.desktop\n"
                    "x-scheme-handler/https=recorder.desktop\n")
        env["BROWSER"] = recorder

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        super().tearDownClass()

    def test_connect_via_browser(self):
        a11y = self.a11y
        a11y.press(a11y.find(self.root, "Sign in", role="push button"))
        a11y.press(a11y.find(self.root, "Advanced"))
        a11y.find(self.root, "Server URL", role="text").queryEditableText().setTextContents(
            self.base)
        a11y.press(a11y.find(self.root, "Connect via browser"))
        self.assertTrue(wait_for(lambda: os.path.exists(self.opened), 15), "no browser opened")
        url = open(self.opened).read().split()[0]
        parts = urllib.parse.urlsplit(url)
        self.assertEqual((parts.scheme, parts.netloc, parts.path),
                         ("http", "127.0.0.1:%d" % self.port, "/en/app/connect"))
        a11y.find(self.root, "Waiting for browser…")

        browser = start_browser(tempfile.mkdtemp(dir=self.data))
        try:
            browser.get(url)
            browser.find_element(By.ID, "name").send_keys("ann")
            browser.find_element(By.ID, "password").send_keys("correct horse")
            browser.find_element(By.CSS_SELECTOR, "button[type=submit].primary").click()
            wait_for(lambda: browser.find_elements(By.XPATH, "//button[text()='Connect']"), 10)
            browser.find_element(By.XPATH, "//button[text()='Connect']").click()
            callbacks = []

            def redirected():
                for entry in browser.get_log("performance"):
                    message = json.loads(entry["message"])["message"]
                    response = message.get("params", {}).get("redirectResponse")
                    location = response and {k.lower(): v for k, v in
                                             response["headers"].items()}.get("location", "")
                    if location and location.startswith("tidewell://"):
                        callbacks.append(location)
                return callbacks

            self.assertTrue(wait_for(redirected, 10), "the server did not call the app back")
        finally:
            browser.quit()

        # As the desktop does with a tidewell:// link: a second launch hands it over.
        handed = subprocess.run([APP, callbacks[0]], env=self.desktop.env, timeout=30,
                                capture_output=True, text=True)
        self.assertEqual(handed.returncode, 0, handed.stderr)
        a11y.find(self.root, "Connected", timeout=15)
        import pyatspi
        self.assertTrue(wait_for(lambda: pyatspi.utils.findDescendant(
            self.root, lambda o: o is not None and (o.name or "").startswith("Last sync ")), 15),
            "no pull after the sign-in")


if __name__ == "__main__":
    main()
