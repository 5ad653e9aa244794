"""The common frame of the end-to-end tests: a throwaway desktop with Tidewell
started on it and found in the accessibility tree, torn down afterwards."""
import os
import subprocess
import sys
import time
import unittest

from desktop import Desktop, wait_for

APP = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else None
SHOTS = sys.argv[2] if len(sys.argv) > 2 else None


class TidewellCase(unittest.TestCase):
    tray = True
    panel = None  # the tray's colour: see Desktop.PANELS

    @classmethod
    def setUpClass(cls):
        cls.desktop = Desktop(tray=cls.tray, panel=cls.panel)
        os.environ.update({k: cls.desktop.env[k] for k in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS")})
        cls.before_launch()
        import accessibility
        cls.a11y = accessibility
        cls.app = subprocess.Popen([APP], env=cls.desktop.env, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, text=True)
        try:
            cls.root = accessibility.application("Tidewell")
        except AssertionError:
            cls.app.kill()
            raise AssertionError("Tidewell did not start: exit %s, %s\n%s"
                                 % (cls.app.poll(), cls.app.communicate()[1][-2000:],
                                    cls.desktop.diagnosis()))

    @classmethod
    def before_launch(cls):
        """Room for a test to start more of the desktop before the app."""

    @classmethod
    def tearDownClass(cls):
        if cls.app.poll() is None:
            cls.app.kill()
        log = cls.app.communicate()[1] if cls.app.stderr else ""
        cls.desktop.close()
        # A module that could not be found or loaded fails quietly for the user.
        trouble = [line for line in log.splitlines()
                   if line.startswith(("AudioService:", "APIClient:"))]
        if trouble:
            raise AssertionError("module problems:\n" + "\n".join(trouble))

    def sign_in_with_token(self, root, address, token):
        """Signs in through the hub's sheet, with the server address under Advanced."""
        a11y = self.a11y
        a11y.press(a11y.find(root, "Sign in", role="push button"))
        a11y.press(a11y.find(root, "Advanced"))
        a11y.find(root, "Server URL", role="text").queryEditableText().setTextContents(address)
        a11y.find(root, "API token", role="password text").queryEditableText() \
            .setTextContents(token)
        a11y.press(a11y.find(root, "Sign in with token"))
        a11y.find(root, "Connected", timeout=15)

    def in_popup(self, root, widget):
        """Places `widget` alone in the tray and opens its popup; its switch and icon."""
        switch = self.a11y.find(root, widget + " in status bar")
        self.a11y.switch_on(switch)
        (x, y), = self.desktop.tray_icons_or_report()
        self.desktop.click(x, y)
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^%s$" % widget)), "no popup")
        return switch, (x, y)

    def add_first_habit(self, root, name, icon):
        """From the open habits popup: the editor window, the name typed, Create; the
        popup is opened again if the editor closed it."""
        a11y, desktop = self.a11y, self.desktop
        a11y.press(a11y.find(root, "Add your first habit"))
        self.assertTrue(wait_for(lambda: desktop.window_ids("^New habit$")), "no editor window")
        self.assertTrue(desktop.wait_active("^New habit$"), "the editor is not active")
        desktop.run(["xdotool", "type", "--delay", "20", name])
        a11y.press(a11y.find(root, "Create"))
        self.assertTrue(wait_for(lambda: not desktop.window_ids("^New habit$")))
        if not desktop.window_ids("^Habits$"):
            desktop.click(*icon)

    def store_rows(self, query, *args):
        """Rows of the app's store, read beside the running app."""
        import sqlite3
        path = os.path.join(self.desktop.home, ".local/share/com.brenlow.tidewell/store.sqlite")
        db = sqlite3.connect("file:%s?mode=ro" % path, uri=True)
        try:
            return db.execute(query, args).fetchall()
        finally:
            db.close()

    def add_task(self, text):
        """Types a task into the open tasks view's field, as a user would."""
        import pyatspi
        field = self.a11y.find(self.root, "Add a task…")
        box = field.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        self.desktop.click(box.x + box.width // 2, box.y + box.height // 2)
        time.sleep(0.2)
        self.desktop.run(["xdotool", "type", "--delay", "15", text])
        self.desktop.run(["xdotool", "key", "Return"])
        self.a11y.find(self.root, text)

    def one_minute_focus(self):
        """Opens the timer's popup alone in the tray and sets focus phases to one
        minute in its settings; the popup's switch and icon."""
        a11y = self.a11y
        switch, icon = self.in_popup(self.root, "Pomodoro")
        a11y.press(a11y.find(self.root, "Settings", role="push button"))
        a11y.find(self.root, "Focus duration", role="spin button").queryValue().currentValue = 1
        a11y.press(a11y.find(self.root, "Save"))
        self.assertTrue(a11y.gone(self.root, "Save"), "the settings stayed open")
        return switch, icon

    def close_popup(self, switch, icon):
        self.desktop.click(*icon)
        self.a11y.press(switch)
        self.assertTrue(wait_for(lambda: not self.a11y.is_checked(switch)))
        self.assertTrue(wait_for(lambda: not self.desktop.tray_icons()), "the tray icon stayed")

    def relaunch(self):
        type(self).app = subprocess.Popen([APP], env=self.desktop.env, stdout=subprocess.DEVNULL,
                                          stderr=subprocess.DEVNULL)
        type(self).root = self.a11y.application("Tidewell")


def main():
    unittest.main(argv=[sys.argv[0], "-v"])
