"""A throwaway KDE Plasma 5.27 on Wayland: kwin_wayland nested in an Xvfb of its own
with software compositing, plasmashell inside it, its own session bus, and Tidewell
under Xwayland. The tray is Plasma's system tray; KWin answers for its windows
through its scripting interface, and plasmashell tells where its tray icons and menu
entries are through the accessibility tree, as a screen reader would learn."""
import itertools
import json
import os
import shutil
import signal
import subprocess
import tempfile

from desktop import start_xvfb, stop_all, wait_for
from nested_desktop import NestedDesktop

SIZE = (1024, 768)

# Every window KWin manages: title, frame, stacking, desktops, state.
WINDOWS_JS = """
var out = [];
var clients = workspace.clientList();
for (var i = 0; i < clients.length; i++) {
    var c = clients[i], g = c.frameGeometry;
    if (c.specialWindow && !c.utility)
        continue;  // the shell's desktop and panel
    out.push({title: c.caption, rect: {x: g.x, y: g.y, width: g.width, height: g.height},
              stacking: c.stackingOrder, above: c.keepAbove, sticky: c.onAllDesktops,
              focused: c.active, desktop: c.desktop,
              visible: !c.minimized && !c.hidden &&
                       (c.onAllDesktops || c.desktop == workspace.currentDesktop)});
}
print("%(marker)s " + JSON.stringify(out));
"""

WITH_WINDOW_JS = """
var clients = workspace.clientList(), found = false;
for (var i = 0; i < clients.length; i++) {
    var c = clients[i];
    if (c.caption === %(title)s) { %(action)s; found = true; }
}
print("%(marker)s " + JSON.stringify(found));
"""


class KdeDesktop(NestedDesktop):
    has_tray = True
    menus = True
    bar_edge = "bottom"
    bar_height = 44
    screen = SIZE

    def __init__(self):
        if os.geteuid() == 0:
            raise RuntimeError("run the KDE desktop as a user (see run-as-desktop-user)")
        self.tmp = tempfile.mkdtemp(prefix="tidewell-kde-")
        self.home = os.path.join(self.tmp, "home")
        runtime = os.path.join(self.tmp, "runtime")
        config = os.path.join(self.home, ".config")
        os.makedirs(config)
        os.makedirs(runtime, mode=0o700)
        with open(os.path.join(config, "kwinrc"), "w") as f:
            f.write("[Desktops]\nNumber=2\nRows=1\n")
        # kwin_wayland carries a file capability that an unprivileged user in a
        # container may not execute; a plain copy runs (it must keep its name).
        bin_dir = os.path.join(self.tmp, "bin")
        os.makedirs(bin_dir)
        kwin = os.path.join(bin_dir, "kwin_wayland")
        shutil.copy("/usr/bin/kwin_wayland", kwin)
        self.procs = []
        self.xvfb_log = os.path.join(self.tmp, "xvfb.log")
        self.outer, self.xvfb = start_xvfb(self.xvfb_log, "%dx%d" % SIZE, range(390, 490),
                                           ["+extension", "GLX"])
        self.procs.append(self.xvfb)
        # The desktop user's login shell is nologin, and a CI runner may set no SHELL:
        # a terminal started here (the other application) runs sh, not nologin.
        self.env = dict(os.environ, DISPLAY=self.outer, HOME=self.home, XDG_RUNTIME_DIR=runtime,
                        SHELL="/bin/sh",
                        XDG_CONFIG_HOME=config,
                        XDG_DATA_HOME=os.path.join(self.home, ".local/share"),
                        XDG_CURRENT_DESKTOP="KDE", XDG_SESSION_TYPE="wayland",
                        KDE_FULL_SESSION="true", KWIN_COMPOSE="Q",
                        QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        for name in ("WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "SWAYSOCK", "QT_QPA_PLATFORM"):
            self.env.pop(name, None)
        bus_file = os.path.join(self.tmp, "bus")
        self.kwin_log = os.path.join(self.tmp, "kwin.log")
        session = "kded5 & sleep 1; QT_QPA_PLATFORM=wayland exec plasmashell"
        self.session = subprocess.Popen(
            ["dbus-run-session", "--", "sh", "-c",
             'echo "$DBUS_SESSION_BUS_ADDRESS" > %s; exec %s --x11-display %s --xwayland '
             '--socket wayland-tidewell --width %d --height %d --exit-with-session "sh -c \'%s\'"'
             % (bus_file, kwin, self.outer, SIZE[0], SIZE[1], session)],
            env=self.env, stdout=subprocess.DEVNULL, stderr=open(self.kwin_log, "w"),
            start_new_session=True)
        if not wait_for(lambda: os.path.exists(bus_file) and os.path.getsize(bus_file), 20):
            raise RuntimeError("the session bus did not start: " + self.log())
        with open(bus_file) as f:
            self.env["DBUS_SESSION_BUS_ADDRESS"] = f.read().strip()
        # The accessibility tree is read from this process, on this session's bus.
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self.env["DBUS_SESSION_BUS_ADDRESS"]
        self._marks = itertools.count()
        # kded loads the tray's watcher in a later phase of a full session start;
        # here it is asked for it.
        if not wait_for(lambda: "true" in self.run([
                "gdbus", "call", "--session", "--dest", "org.kde.kded5", "--object-path",
                "/kded", "--method", "org.kde.kded5.loadModule",
                "statusnotifierwatcher"]).stdout, 30):
            raise RuntimeError("kded did not start: " + self.log())
        # Ready once the panel is drawn, with the tray in it.
        if not wait_for(lambda: self._shell_object("Show Desktop") or
                        self._shell_object("Peek at Desktop"), 40):
            raise RuntimeError("Plasma's panel did not show: " + self.log())
        self.app = None
        self.app_env = None

    def log(self):
        with open(self.kwin_log, errors="replace") as f:
            return f.read()[-2000:]

    def script(self, source):
        """Runs a KWin script and returns what it printed after its marker, as JSON."""
        marker = "TIDEWELL-%d" % next(self._marks)
        path = os.path.join(self.tmp, marker + ".js")
        with open(path, "w") as f:
            f.write(source.replace("%(marker)s", marker))
        call = ["gdbus", "call", "--session", "--dest", "org.kde.KWin", "--object-path",
                "/Scripting", "--method"]
        self.run(call + ["org.kde.kwin.Scripting.loadScript", path, marker])
        self.run(call + ["org.kde.kwin.Scripting.start"])

        def printed():
            with open(self.kwin_log, errors="replace") as f:
                text = f.read()
            start = text.find(marker + " ")
            end = text.find("\n", start)
            # Only a whole line: KWin may be writing it still.
            return text[start + len(marker) + 1:end] if start >= 0 and end > 0 else None
        out = wait_for(printed, 5, 0.02)
        self.run(call + ["org.kde.kwin.Scripting.unloadScript", marker])
        os.remove(path)
        return json.loads(out) if out else None

    def window_list(self):
        return self.script(WINDOWS_JS) or []

    def _with_window(self, title, action):
        return self.script(WITH_WINDOW_JS.replace("%(title)s", json.dumps(title))
                           .replace("%(action)s", action))

    def activate(self, title):
        return self._with_window(title, "workspace.activeClient = c")

    def close_window(self, title):
        return self._with_window(title, "c.closeWindow()")

    def show_workspace(self, number):
        self.script("workspace.currentDesktop = %d; print('%%(marker)s true');" % number)

    def session_processes(self):
        """This session's processes, with their environments: some of Plasma's leave
        the session's process group."""
        found = {}
        for pid in self.run(["pgrep", "-u", str(os.getuid())]).stdout.split():
            try:
                with open("/proc/%s/environ" % pid, "rb") as f:
                    environ = dict(item.decode(errors="replace").split("=", 1)
                                   for item in f.read().split(b"\0") if b"=" in item)
                with open("/proc/%s/comm" % pid) as f:
                    name = f.read().strip()
            except OSError:
                continue
            if environ.get("XDG_RUNTIME_DIR") == self.env["XDG_RUNTIME_DIR"]:
                found[int(pid)] = (name, environ)
        return found

    def launch(self, binary, *args):
        """Starts Tidewell with the session's environment, as its launcher would."""
        environ = [env for name, env in self.session_processes().values()
                   if name == "plasmashell"][0]
        environ.pop("QT_QPA_PLATFORM", None)
        self.app_env = dict(environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        self.app_proc = subprocess.Popen([binary, *args], env=self.app_env,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.app = self.app_proc.pid
        return self.app

    def quit_app(self):
        if self.app:
            self.app_proc.terminate()
            self.app_proc.wait(15)
            self.app = None

    def start_other_app(self):
        """Another application's window, large, with nothing on it to click: the title
        it gets. (foot, the native Wayland terminal used elsewhere, stops on a
        division by zero on KWin's nested output.)"""
        subprocess.Popen(["xmessage", "-buttons", "", "-geometry", "640x420+300+120",
                          "Another application"], env=self.app_env or self.env,
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                         start_new_session=True)
        return "xmessage"

    def _shell_object(self, name, role=None):
        """plasmashell's accessible object of that name: its centre on the screen."""
        import pyatspi
        desktop = pyatspi.Registry.getDesktop(0)
        for i in range(desktop.childCount):
            app = desktop.getChildAtIndex(i)
            if app is None or app.name != "plasmashell":
                continue
            found = pyatspi.utils.findDescendant(
                app, lambda o: o is not None and o.name == name and
                (role is None or o.getRoleName() == role) and
                o.getState().contains(pyatspi.STATE_SHOWING))
            if found is None:
                return None
            try:
                box = found.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
            except NotImplementedError:
                return None
            return box.x + box.width // 2, box.y + box.height // 2
        return None

    def tray_icon(self, item_id):
        """Plasma names each icon by its item's Title ("Tidewell Pomodoro"): where it
        is once it stays put (the tray lays itself out again as items come)."""
        name = "Tidewell " + item_id.split("-", 1)[1].capitalize()
        seen = []

        def settled():
            seen.append(self._shell_object(name, "push button"))
            return seen[-1] if len(seen) > 1 and seen[-1] and seen[-1] == seen[-2] else None
        return wait_for(settled, 5, 0.3)

    def tray_icons(self, count, timeout=20):
        def find():
            icons = [self.tray_icon("tidewell-" + w) for w in ("pomodoro", "tasks", "habits")]
            return sorted(icons) if all(icons) and len(icons) == count else None
        return wait_for(find, timeout, 0.3)

    def close(self):
        self.quit_app()
        for sig in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(self.session.pid, sig)
                self.session.wait(10)
                break
            except ProcessLookupError:
                break
            except subprocess.TimeoutExpired:
                continue
        for pid in self.session_processes():
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        stop_all(self.procs)
        shutil.rmtree(self.tmp, ignore_errors=True)
