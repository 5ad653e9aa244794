"""The plain X11 desktop of the other end-to-end tests (Xvfb, openbox, trayer's XEmbed
tray), seen through the same eyes as the nested Wayland desktops: windows as the
window manager lists them, the tray's icons, clicks and workspaces."""
import re
import subprocess

from desktop import Desktop, wait_for
from nested_desktop import NestedDesktop

STICKY = 0xFFFFFFFF


class X11Desktop(NestedDesktop):
    has_tray = True
    menus = True
    bar_edge = "top"
    bar_height = 24  # trayer's
    screen = (1280, 800)

    def __init__(self):
        self.desktop = Desktop(tray=True)
        self.tmp = self.desktop.tmp
        self.home = self.desktop.home
        self.env = self.desktop.env
        self.outer = self.desktop.display
        self.app_proc = None

    def log(self):
        return self.desktop.diagnosis()

    def launch(self, binary, *args):
        self.app_proc = subprocess.Popen([binary, *args], env=self.env,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.app = self.app_proc.pid
        self.app_env = dict(self.env)
        return self.app

    def quit_app(self):
        if self.app_proc and self.app_proc.poll() is None:
            self.app_proc.terminate()
            self.app_proc.wait(15)
        self.app = None

    def _root(self, name):
        return self.run(["xprop", "-root", name]).stdout

    def window_list(self):
        """The window manager's clients, bottom to top."""
        stacking = re.findall(r"0x[0-9a-f]+", self._root("_NET_CLIENT_LIST_STACKING"))
        active = re.findall(r"0x[0-9a-f]+", self._root("_NET_ACTIVE_WINDOW"))
        found = []
        for order, window in enumerate(stacking):
            props = self.run(["xprop", "-id", window, "_NET_WM_NAME", "WM_NAME",
                              "_NET_WM_DESKTOP", "_NET_WM_STATE"]).stdout
            info = self.run(["xwininfo", "-id", window]).stdout
            title = (re.search(r'_NET_WM_NAME\(UTF8_STRING\) = "(.*)"', props) or
                     re.search(r'WM_NAME\((?:STRING|COMPOUND_TEXT)\) = "(.*)"', props))
            desktop = re.search(r"_NET_WM_DESKTOP\(CARDINAL\) = (\d+)", props)
            geometry = {key: re.search(pattern + r":\s+(-?\d+)", info)
                        for key, pattern in (("x", "Absolute upper-left X"),
                                             ("y", "Absolute upper-left Y"),
                                             ("width", "Width"), ("height", "Height"))}
            if not all(geometry.values()):
                continue  # gone since the list was read
            geometry = {key: int(match.group(1)) for key, match in geometry.items()}
            found.append(dict(
                title=title.group(1) if title else "", rect=geometry, stacking=order,
                sticky=bool(desktop and int(desktop.group(1)) == STICKY)
                or "_NET_WM_STATE_STICKY" in props,
                focused=bool(active) and int(active[0], 16) == int(window, 16),
                visible="IsViewable" in info))
        return found

    def _ids(self, title):
        return self.desktop.window_ids("^%s$" % re.escape(title), visible=False)

    def activate(self, title):
        ids = self._ids(title)
        if ids:
            self.run(["xdotool", "windowactivate", str(ids[0])])
        return bool(ids)

    def close_window(self, title):
        return self.run(["wmctrl", "-c", title]).returncode == 0

    def show_workspace(self, number):
        self.run(["wmctrl", "-s", str(number - 1)])

    def start_other_app(self):
        """Another application's window, large, with nothing on it to click."""
        proc = subprocess.Popen(["xmessage", "-buttons", "", "-geometry", "640x420+300+120",
                                 "Another application"], env=self.env,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.desktop.procs.append(proc)
        return "xmessage"

    def tray_icons(self, count, timeout=20):
        seen = []

        def settled():
            seen.append(self.desktop.tray_icons())
            return seen[-1] if len(seen[-1]) == count and len(seen) > 1 and \
                seen[-1] == seen[-2] else None
        return wait_for(settled, timeout, 0.3)

    def tray_icon(self, item_id):
        """XEmbed icons carry no Id: they are found by place."""
        return None

    def close(self):
        self.quit_app()
        self.desktop.close()
