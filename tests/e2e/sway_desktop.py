"""A throwaway sway desktop: sway with waybar (a StatusNotifierItem tray), nested in
an Xvfb of its own, its own session bus, and Tidewell under Xwayland inside it.
Sway refuses to run as root, so this runs as the user the test runs as (see
run-as-desktop-user)."""
import glob
import json
import re
import os
import shutil
import signal
import subprocess
import tempfile

from desktop import start_xvfb, stop_all, wait_for
from nested_desktop import NestedDesktop

SWAY_CONFIG = """
output * bg #336699 solid_color
default_border none
exec mako
bar {
    swaybar_command waybar
}
"""
# The tray alone at the right end, with a gap between icons to click between.
WAYBAR_CONFIG = {"layer": "top", "position": "top", "height": 30,
                 "modules-right": ["tray"], "tray": {"icon-size": 18, "spacing": 12}}


class SwayDesktop(NestedDesktop):
    has_tray = True
    menus = False
    bar_edge = "top"
    bar_height = 30
    screen = (1024, 768)

    def __init__(self):
        if os.geteuid() == 0:
            raise RuntimeError("sway does not run as root: start the test as a user")
        self.tmp = tempfile.mkdtemp(prefix="tidewell-sway-")
        self.home = os.path.join(self.tmp, "home")
        runtime = os.path.join(self.tmp, "runtime")
        config = os.path.join(self.home, ".config")
        os.makedirs(os.path.join(config, "waybar"))
        os.makedirs(runtime, mode=0o700)
        with open(os.path.join(config, "sway.conf"), "w") as f:
            f.write(SWAY_CONFIG)
        with open(os.path.join(config, "waybar", "config"), "w") as f:
            json.dump(WAYBAR_CONFIG, f)
        self.procs = []
        self.xvfb_log = os.path.join(self.tmp, "xvfb.log")
        self.outer, self.xvfb = start_xvfb(self.xvfb_log, "1024x768", range(190, 290))
        self.procs.append(self.xvfb)
        # The desktop user's login shell is nologin, and a CI runner may set no SHELL:
        # a terminal started here (the other application) runs sh, not nologin.
        self.env = dict(os.environ, DISPLAY=self.outer, HOME=self.home, XDG_RUNTIME_DIR=runtime,
                        SHELL="/bin/sh",
                        XDG_CONFIG_HOME=config,
                        XDG_DATA_HOME=os.path.join(self.home, ".local/share"),
                        WLR_BACKENDS="x11", WLR_RENDERER="pixman", WLR_LIBINPUT_NO_DEVICES="1",
                        QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        for name in ("WAYLAND_DISPLAY", "SWAYSOCK", "DBUS_SESSION_BUS_ADDRESS"):
            self.env.pop(name, None)
        bus_file = os.path.join(self.tmp, "bus")
        self.sway_log = os.path.join(self.tmp, "sway.log")
        # A process group of its own: the bus, the accessibility bus it starts, sway,
        # Xwayland and waybar all go with it at the end.
        self.session = subprocess.Popen(
            ["dbus-run-session", "--", "sh", "-c",
             'echo "$DBUS_SESSION_BUS_ADDRESS" > %s; exec sway -c %s'
             % (bus_file, os.path.join(config, "sway.conf"))],
            env=self.env, stdout=subprocess.DEVNULL, stderr=open(self.sway_log, "w"),
            start_new_session=True)
        if not wait_for(lambda: glob.glob(os.path.join(runtime, "sway-ipc.*.sock"))
                        and os.path.getsize(bus_file) if os.path.exists(bus_file) else False, 20):
            raise RuntimeError("sway did not start: " + self.log())
        self.env["SWAYSOCK"] = glob.glob(os.path.join(runtime, "sway-ipc.*.sock"))[0]
        with open(bus_file) as f:
            self.env["DBUS_SESSION_BUS_ADDRESS"] = f.read().strip()
        if not wait_for(lambda: self.name_has_owner("org.kde.StatusNotifierWatcher"), 20):
            raise RuntimeError("waybar's tray did not start: " + self.log())
        self.app = None
        self.app_env = None

    def log(self):
        with open(self.sway_log) as f:
            return f.read()[-2000:]

    def swaymsg(self, *args):
        out = self.run(["swaymsg", "-r", *args]).stdout
        return json.loads(out) if out.strip() else None

    def launch(self, binary, *args):
        """Starts Tidewell inside sway, as a keyboard shortcut or launcher would, and
        learns the Xwayland display it got."""
        before = set(self.pids(binary))
        self.swaymsg("exec", " ".join([binary, *args]))
        return self.adopt(binary, before)

    def window_list(self):
        """Sway's windows: rect, whether floating, sticky, focused, visible and the
        workspace each is on (for sticky ones, the one in view)."""
        found = []
        order = []

        def walk(node, workspace, floating):
            if node.get("type") == "workspace":
                workspace = node.get("name")
            if node.get("type") in ("con", "floating_con") and node.get("name"):
                found.append(dict(title=node["name"],
                    rect=node["rect"], floating=floating, sticky=node.get("sticky"),
                    focused=node.get("focused"), visible=node.get("visible"),
                    workspace=workspace, window=node.get("window"), stacking=len(order)))
                order.append(node["name"])
            for child in node.get("nodes", []):
                walk(child, workspace, False)
            for child in node.get("floating_nodes", []):
                walk(child, workspace, True)
        walk(self.swaymsg("-t", "get_tree"), None, False)
        return found

    def start_other_app(self):
        """A native Wayland application: the title its window gets."""
        self.swaymsg("exec", "foot")
        return "foot"

    def _criteria(self, title):
        return '[title="^%s$"]' % re.escape(title).replace('"', '\\"')

    def activate(self, title):
        return bool(self.window(title)) and bool(self.swaymsg(self._criteria(title) + " focus"))

    def close_window(self, title):
        return self.swaymsg(self._criteria(title) + " kill")

    def show_workspace(self, number):
        self.swaymsg("workspace", str(number))

    def tray_icons(self, count, timeout=20):
        """The centres of the tray's icons in waybar, left to right, once `count` show:
        runs of non-background pixels along the bar's middle, from the right end."""
        def find():
            image = self.screenshot().convert("RGB")
            y = 15
            background = image.getpixel((image.width - 1, y))
            icons, start = [], None
            for x in range(image.width - 1, image.width // 2, -1):
                differs = sum(abs(a - b) for a, b in zip(image.getpixel((x, y)), background)) > 60
                if differs and start is None:
                    start = x
                elif not differs and start is not None:
                    if start - x >= 4:
                        icons.append(((start + x) // 2, y))
                    start = None
            return sorted(icons) if len(icons) == count else None
        return wait_for(find, timeout, 0.3)

    def tray_icon(self, item_id):
        """waybar's icons are found on screen, not by their Id."""
        return None

    def close(self):
        self.quit_app()
        self.run(["swaymsg", "exit"])
        try:
            self.session.wait(5)
        except subprocess.TimeoutExpired:
            pass
        try:
            os.killpg(self.session.pid, signal.SIGTERM)
        except ProcessLookupError:
            pass
        stop_all(self.procs)
        shutil.rmtree(self.tmp, ignore_errors=True)
