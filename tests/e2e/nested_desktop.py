"""What the nested Wayland desktops have in common: each runs in an Xvfb of its own,
with its own session bus, and Tidewell under its Xwayland. A subclass starts the
desktop and says where its windows and tray icons are."""
import os
import subprocess

from desktop import settles, wait_for


class NestedDesktop:
    outer = None  # the Xvfb's display
    app = None
    app_env = None

    def run(self, cmd, env=None, **kw):
        return subprocess.run(cmd, env=env or self.env, capture_output=True, text=True, **kw)

    def name_has_owner(self, name):
        out = self.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus",
                        "--object-path", "/org/freedesktop/DBus",
                        "--method", "org.freedesktop.DBus.NameHasOwner", name]).stdout
        return "true" in out

    def pids(self, binary):
        out = self.run(["pgrep", "-u", str(os.getuid()), "-f", "^" + binary]).stdout
        return [int(p) for p in out.split()]

    def adopt(self, binary, before, keep=("DISPLAY",)):
        """The instance of `binary` started since `before` (its pids then), and the
        environment it runs in, for the test to reach it."""
        fresh = wait_for(lambda: set(self.pids(binary)) - before, 20)
        if not fresh:
            raise RuntimeError("Tidewell did not start: " + self.log())
        self.app = fresh.pop()
        with open("/proc/%d/environ" % self.app, "rb") as f:
            environ = dict(item.decode(errors="replace").split("=", 1)
                           for item in f.read().split(b"\0") if b"=" in item)
        self.app_env = dict(self.env, **{k: environ.get(k, "") for k in keep})
        return self.app

    def quit_app(self):
        if self.app:
            os.kill(self.app, 15)
            wait_for(lambda: not os.path.exists("/proc/%d" % self.app), 15)
            self.app = None

    def windows(self):
        """The desktop's windows by title, each with its frame, stacking position
        (higher is nearer the top), stickiness, focus and whether it is in view."""
        found = {}
        for w in self.window_list():
            found.setdefault(w["title"], []).append(w)
        return found

    def window(self, title):
        return (self.windows().get(title) or [None])[0]

    def click(self, x, y, button=1):
        """A click on the desktop's output: the nested compositor fills the Xvfb from
        its top left corner, so its coordinates are the Xvfb's."""
        self.run(["xdotool", "mousemove", str(x), str(y), "click", str(button)])

    def open_popup(self, x, y, button=1):
        """A click opens the item's popup; a right click its menu, whose first entry,
        "Show …", the keyboard picks (Plasma's menus are not in any accessibility
        tree to find it by)."""
        before = self.screenshot().tobytes() if button == 3 else None
        self.click(x, y, button)
        if button == 3:
            wait_for(lambda: self.screenshot().tobytes() != before, 5)
            self.wait_still()
            self.run(["xdotool", "key", "Down", "Return"])

    def wait_still(self, timeout=5.0):
        """Waits until the screen stops changing."""
        return settles(lambda: self.screenshot().tobytes(), timeout)

    def saved_frame(self, widget_id):
        """The frame the app last saved for a floating widget, as the store keeps it."""
        import sqlite3
        path = os.path.join(self.home, ".local/share/com.brenlow.tidewell/store.sqlite")
        db = sqlite3.connect("file:%s?mode=ro" % path, uri=True)
        try:
            rows = db.execute("SELECT desktopFrameJSON FROM widget_placement WHERE widgetId = ?",
                              (widget_id,)).fetchall()
        finally:
            db.close()
        return rows[0][0] if rows else None

    def screenshot(self, path=None):
        from PIL import ImageGrab
        image = ImageGrab.grab(xdisplay=self.outer)
        if path:
            image.save(path)
        return image
