#!/usr/bin/python3
"""The server's web pages in a real browser (Debian's Chromium through WebDriver):
signing in and connecting the desktop app with a given state, a wrong password, a
foreign scheme, a replayed form, and a token made on the tokens page, used with
curl and revoked.

Usage: test_web_pages.py <tidewell-server binary> [screenshot folder]
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from tidewell_server import TidewellServer  # noqa: E402

SERVER = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else None
SHOTS = sys.argv[2] if len(sys.argv) > 2 else None
STATE = "0123456789abcdef" * 3


def start_browser(tmp):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic",
                 "--no-first-run", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync", "--window-size=820,900",
                 "--user-data-dir=" + os.path.join(tmp, "chromium")):
        options.add_argument(flag)
    # The browser will not follow a redirect to tidewell://; its network log shows where
    # the server sent it.
    options.set_capability("goog:loggingPrefs", {"performance": "ALL"})
    service = Service(executable_path="/usr/bin/chromedriver")
    return webdriver.Chrome(options=options, service=service)


class WebPages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="tws-web-")
        cls.server = TidewellServer(SERVER)
        cls.server.add_user()
        cls.server.start()
        cls.port, cls.base = cls.server.port, cls.server.base

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def setUp(self):
        # A fresh browser each time: one that was sent to tidewell:// may hold a
        # hidden prompt to open another program.
        self.browser = start_browser(tempfile.mkdtemp(dir=self.tmp))

    def tearDown(self):
        self.browser.quit()

    @classmethod
    def cli(cls, *args, stdin=None):
        return cls.server.cli(*args, stdin=stdin)

    def shot(self, name):
        if SHOTS:
            self.browser.save_screenshot(os.path.join(SHOTS, name))

    def text(self):
        return self.browser.find_element(By.TAG_NAME, "main").text

    def wait_for(self, condition, what, timeout=10):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            try:
                if condition():
                    return
            except Exception:  # the page may be between two loads
                pass
            time.sleep(0.05)
        self.fail("%s; the page says: %s" % (what, self.text()))

    def shows(self, words):
        self.wait_for(lambda: words in self.text(), "no %r" % words)

    def sign_in(self, password="correct horse"):
        b = self.browser
        b.find_element(By.ID, "name").send_keys("ann")
        b.find_element(By.ID, "password").send_keys(password)
        b.find_element(By.CSS_SELECTOR, "button[type=submit].primary").click()

    def redirects(self):
        """Every Location the server answered with, from the browser's network log."""
        found = []
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message.get("method") == "Network.requestWillBeSent":
                response = message["params"].get("redirectResponse")
                if response:
                    headers = {k.lower(): v for k, v in response["headers"].items()}
                    found.append(headers.get("location", ""))
        return found

    def api_status(self, token):
        request = urllib.request.Request(self.base + "/api/v1/habits",
                                         headers={"Authorization": "Bearer " + token})
        try:
            return urllib.request.urlopen(request, timeout=5).status
        except urllib.error.HTTPError as error:
            return error.code

    def connect_url(self, scheme="tidewell", state=STATE):
        return "%s/en/app/connect?%s" % (self.base, urllib.parse.urlencode(
            {"state": state, "scheme": scheme}))

    def test_1_sign_in_and_connect(self):
        b = self.browser
        b.get(self.connect_url())
        self.shot("server-sign-in.png")
        self.sign_in()
        self.shows("Connect this computer to Tidewell?")
        self.assertIn("ann", self.text())
        self.shot("server-connect.png")
        sent = {field.get_attribute("name"): field.get_attribute("value") for field in
                b.find_elements(By.CSS_SELECTOR, "form[action='/en/app/connect'] input")}
        b.find_element(By.XPATH, "//button[text()='Connect']").click()
        callback = []
        self.wait_for(lambda: callback.extend(u for u in self.redirects()
                                              if u.startswith("tidewell://")) or callback,
                      "no redirect to tidewell://")
        self.assertEqual(len(callback), 1, callback)
        query = urllib.parse.parse_qs(urllib.parse.urlsplit(callback[0]).query)
        self.assertEqual(query["state"], [STATE])
        self.assertEqual(self.api_status(query["token"][0]), 200)
        self.assertRegex(self.cli("token", "list", "ann"), r"\d{4}-\d\d-\d\d desktop app")

        # The same form sent again, from another tab of the same browser, is refused
        # and makes no token. (The first tab may be holding a hidden prompt to open
        # tidewell:// with another program.)
        before = self.cli("token", "list", "ann")
        b.switch_to.new_window("tab")
        b.get(self.base + "/en/app/tokens")
        b.execute_script("""
            const form = document.createElement("form");
            form.method = "post";
            form.action = "/en/app/connect";
            for (const [name, value] of Object.entries(arguments[0])) {
                const input = document.createElement("input");
                input.type = "hidden"; input.name = name; input.value = value;
                form.appendChild(input);
            }
            document.body.appendChild(form);
            form.submit();""", dict(sent, action="connect"))
        self.shows("already used or has expired")
        self.assertEqual(self.cli("token", "list", "ann"), before)

    def test_4_cancel_sends_no_token(self):
        b = self.browser
        b.get(self.connect_url())
        self.sign_in()
        self.shows("Connect this computer to Tidewell?")
        before = self.cli("token", "list", "ann")
        b.find_element(By.XPATH, "//button[text()='Cancel']").click()
        back = []
        self.wait_for(lambda: back.extend(u for u in self.redirects()
                                          if u.startswith("tidewell://")) or back,
                      "no redirect to tidewell://")
        self.assertEqual(back, ["tidewell://auth?state=" + STATE])
        self.assertEqual(self.cli("token", "list", "ann"), before)

    def test_2_refusals(self):
        b = self.browser
        b.get(self.connect_url())
        self.sign_in("wrong horse")
        self.shows("Wrong user name or password.")
        self.assertFalse(b.get_cookie("tw_session"))
        self.sign_in()
        self.shows("Connect this computer to Tidewell?")
        before = self.cli("token", "list", "ann")
        for url, says in ((self.connect_url(scheme="https"), "does not allow"),
                          (self.connect_url(scheme="evil"), "does not allow"),
                          (self.connect_url(state="abc"), "not valid"),
                          (self.base + "/en/app/connect?scheme=tidewell", "not valid")):
            b.get(url)
            self.shows(says)
            self.assertFalse(b.find_elements(By.XPATH, "//button[text()='Connect']"))
        self.assertEqual(self.cli("token", "list", "ann"), before)

    def test_3_tokens_page(self):
        b = self.browser
        b.get(self.base + "/en/app/tokens")
        self.sign_in()
        self.shows("Apps sign in with API tokens.")
        self.assertEqual(urllib.parse.urlsplit(b.current_url).path, "/en/app/tokens")
        b.find_element(By.ID, "label").send_keys("curl test")
        b.find_element(By.XPATH, "//button[text()='Create token']").click()
        self.shows("Your new token")
        token = b.find_element(By.ID, "token").get_attribute("value")
        self.assertTrue(b.find_element(By.XPATH, "//button[text()='Copy']").is_displayed())
        self.shot("server-tokens.png")
        curl = ["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}", "-H",
                "Authorization: Bearer " + token, self.base + "/api/v1/habits"]
        self.assertEqual(subprocess.run(curl, capture_output=True, text=True).stdout, "200")
        # The list shows labels and times, never a token.
        b.get(self.base + "/en/app/tokens")
        self.assertNotIn(token, b.page_source)
        self.assertIn("curl test", self.text())
        b.find_element(By.CSS_SELECTOR, "button[aria-label='Revoke curl test']").click()
        self.wait_for(lambda: "curl test" not in self.text(), "the token is still listed")
        self.assertEqual(subprocess.run(curl, capture_output=True, text=True).stdout, "401")

        # Signing out ends the session: the page asks to sign in again.
        b.find_element(By.XPATH, "//button[text()='Sign out']").click()
        self.shows("Sign in with your Tidewell account.")
        b.get(self.base + "/en/app/tokens")
        self.shows("Sign in with your Tidewell account.")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
