"""A throwaway GNOME Shell 43 on Wayland: the shell nested in an Xvfb of its own, its
own session bus, a stand-in logind on a private system bus, and Tidewell under
Xwayland inside it. With `tray`, Debian's AppIndicator extension is on (the tray
most GNOME users add); without it, stock GNOME shows no tray at all.

The shell runs in unsafe mode so that the test can ask it, through Eval, where its
windows and tray icons are, as a user would see them."""
import json
import os
import shutil
import signal
import subprocess
import tempfile

from desktop import start_xvfb, stop_all, wait_for
from nested_desktop import NestedDesktop

APPINDICATOR = "ubuntu-appindicators@ubuntu.com"
SIZE = (1024, 768)

# Every window the shell knows of: title, frame, stacking, workspace, state.
WINDOWS_JS = """
const ws = global.workspace_manager.get_active_workspace();
const sorted = global.display.sort_windows_by_stacking(
    global.get_window_actors().map(a => a.meta_window));
JSON.stringify(sorted.map((w, i) => {
    const r = w.get_frame_rect();
    return {title: w.get_title(), rect: {x: r.x, y: r.y, width: r.width, height: r.height},
            stacking: i, above: w.is_above(), sticky: w.is_on_all_workspaces(),
            focused: w.has_focus(), wm_class: w.get_wm_class(),
            workspace: w.get_workspace() ? w.get_workspace().index() : -1,
            visible: w.showing_on_its_workspace() && w.located_on_workspace(ws)};
}));
"""

# The centres of the AppIndicator extension's icons in the top bar, left to right,
# each with its item's Id.
TRAY_JS = """
JSON.stringify(Object.keys(Main.panel.statusArea)
    .filter(k => k.startsWith('appindicator-'))
    .map(k => Main.panel.statusArea[k])
    .filter(item => item.visible && item.get_stage() && item.width > 0)
    .map(item => {
        const [x, y] = item.get_transformed_position();
        return [Math.round(x + item.width / 2), Math.round(y + item.height / 2),
                item._indicator.id];
    }).sort((a, b) => a[0] - b[0]));
"""

# The open AppIndicator menu's item labelled so: its centre.
MENU_JS = """
const items = Object.keys(Main.panel.statusArea).filter(k => k.startsWith('appindicator-'))
    .map(k => Main.panel.statusArea[k].menu).filter(m => m.isOpen)
    .flatMap(m => m._getMenuItems()).filter(i => i.label && i.label.text.startsWith(%s));
const found = items.length ? items[0].get_transformed_position().concat(
    [items[0].width, items[0].height]) : null;
JSON.stringify(found && [Math.round(found[0] + found[2] / 2), Math.round(found[1] + found[3] / 2)]);
"""


class GnomeDesktop(NestedDesktop):
    menus = True
    bar_edge = "top"
    bar_height = 32
    screen = SIZE

    def __init__(self, tray=True):
        self.has_tray = tray
        if os.geteuid() == 0:
            raise RuntimeError("run the GNOME desktop as a user (see run-as-desktop-user)")
        self.tmp = tempfile.mkdtemp(prefix="tidewell-gnome-")
        self.home = os.path.join(self.tmp, "home")
        runtime = os.path.join(self.tmp, "runtime")
        config = os.path.join(self.home, ".config")
        os.makedirs(os.path.join(config, "glib-2.0", "settings"))
        os.makedirs(runtime, mode=0o700)
        # Settings from a key file: no dconf service needed, and nothing of the
        # user's own settings leaks in.
        with open(os.path.join(config, "glib-2.0", "settings", "keyfile"), "w") as f:
            f.write("[org/gnome/shell]\nenabled-extensions=[%s]\n"
                    "welcome-dialog-last-shown-version='999'\n"
                    % ("'%s'" % APPINDICATOR if tray else ""))
        # Without a display manager there is no lock screen; the shell warns of that
        # once per user, over what the test looks at.
        shell_data = os.path.join(self.home, ".local", "share", "gnome-shell")
        os.makedirs(shell_data)
        open(os.path.join(shell_data, "lock-warning-shown"), "w").close()
        self.procs = []
        self.xvfb_log = os.path.join(self.tmp, "xvfb.log")
        self.outer, self.xvfb = start_xvfb(self.xvfb_log, "%dx%d" % SIZE, range(290, 390),
                                           ["+extension", "GLX"])
        self.procs.append(self.xvfb)
        # The desktop user's login shell is nologin, and a CI runner may set no SHELL:
        # a terminal started here (the other application) runs sh, not nologin.
        self.env = dict(os.environ, DISPLAY=self.outer, HOME=self.home, XDG_RUNTIME_DIR=runtime,
                        SHELL="/bin/sh",
                        XDG_CONFIG_HOME=config, GSETTINGS_BACKEND="keyfile",
                        XDG_DATA_HOME=os.path.join(self.home, ".local/share"),
                        XDG_CURRENT_DESKTOP="GNOME", XDG_SESSION_TYPE="wayland",
                        MUTTER_DEBUG_DUMMY_MODE_SPECS="%dx%d" % SIZE,
                        QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        for name in ("WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "SWAYSOCK"):
            self.env.pop(name, None)
        # The shell wants a system bus with logind on it; a private one will do.
        system_bus = os.path.join(self.tmp, "system_bus")
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork",
                                "--address=unix:path=" + system_bus],
                               env=self.env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.procs.append(bus)
        if not wait_for(lambda: os.path.exists(system_bus), 10):
            raise RuntimeError("the private system bus did not start")
        self.env["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + system_bus
        logind = subprocess.Popen(["/usr/bin/python3", "-m", "dbusmock", "--system", "--template",
                                   "logind"], env=self.env, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        self.procs.append(logind)
        bus_file = os.path.join(self.tmp, "bus")
        self.shell_log = os.path.join(self.tmp, "shell.log")
        self.session = subprocess.Popen(
            ["dbus-run-session", "--", "sh", "-c",
             'echo "$DBUS_SESSION_BUS_ADDRESS" > %s; exec gnome-shell --nested --wayland '
             '--unsafe-mode' % bus_file],
            env=self.env, stdout=subprocess.DEVNULL, stderr=open(self.shell_log, "w"),
            start_new_session=True)
        if not wait_for(lambda: os.path.exists(bus_file) and os.path.getsize(bus_file), 20):
            raise RuntimeError("the session bus did not start: " + self.log())
        with open(bus_file) as f:
            self.env["DBUS_SESSION_BUS_ADDRESS"] = f.read().strip()
        if not wait_for(lambda: self.eval("Main.layoutManager._startingUp === false") is True, 40):
            raise RuntimeError("GNOME Shell did not start: " + self.log())
        # It starts in the overview, as after a log-in; leave it for the desktop.
        self.eval("Main.overview.hide(); true")
        wait_for(lambda: self.eval("Main.overview.visible") is False, 10)
        if tray and not wait_for(lambda: self.name_has_owner("org.kde.StatusNotifierWatcher"), 20):
            raise RuntimeError("the AppIndicator extension did not start: " + self.log())
        self.app = None
        self.app_env = None

    def log(self):
        with open(self.shell_log) as f:
            return f.read()[-2000:]

    def eval(self, js):
        """The value of the script's last expression, or None when the shell cannot
        say (not running yet, or the script failed)."""
        import dbus
        try:
            if getattr(self, "_shell", None) is None:
                bus = dbus.bus.BusConnection(self.env["DBUS_SESSION_BUS_ADDRESS"])
                self._shell = bus.get_object("org.gnome.Shell", "/org/gnome/Shell",
                                             introspect=False)
            ok, out = self._shell.Eval(js, dbus_interface="org.gnome.Shell", timeout=10)
        except dbus.DBusException:
            self._shell = None
            return None
        if not ok:
            return None
        # The shell sends the value JSON-encoded; scripts here JSON-encode theirs too.
        try:
            value = json.loads(str(out))
            return json.loads(value) if isinstance(value, str) else value
        except ValueError:
            return str(out)

    def spawn(self, argv):
        """Starts a program from the shell, as its launcher would."""
        self.eval("imports.misc.util.spawn(%s); true" % json.dumps(argv))

    def launch(self, binary, *args):
        before = set(self.pids(binary))
        self.spawn([binary, *args])
        return self.adopt(binary, before, keep=("DISPLAY", "XAUTHORITY"))

    def window_list(self):
        return self.eval(WINDOWS_JS) or []

    def start_other_app(self):
        """A native Wayland application: the title its window gets."""
        self.spawn(["foot"])
        return "foot"

    def _with_window(self, title, action):
        return self.eval("const w = global.get_window_actors().map(a => a.meta_window)"
                         ".find(w => w.get_title() === %s); if (w) { %s; } !!w"
                         % (json.dumps(title), action))

    def activate(self, title):
        return self._with_window(title, "w.activate(global.get_current_time())")

    def close_window(self, title):
        return self._with_window(title, "w.delete(global.get_current_time())")

    def open_popup(self, x, y, button=1):
        """The AppIndicator extension opens an item's menu on a click (it activates an
        item only on a double click, and not reliably the first time): the menu's
        first entry, "Show …", opens the popup."""
        self.close_menus()
        self.click(x, y, button)
        # The menu slides open: its entry is clicked once it stays put.
        seen = []

        def settled():
            seen.append(self.menu_item("Show "))
            return seen[-1] if len(seen) > 2 and seen[-1] and seen[-3:].count(seen[-1]) == 3 \
                else None
        item = wait_for(settled, 5, 0.1)
        if item:
            self.click(*item)
        else:
            self.close_menus()

    def close_menus(self):
        self.eval("if (Main.panel.menuManager.activeMenu) "
                  "Main.panel.menuManager.activeMenu.close(); true")

    def menu_item(self, prefix):
        """The centre of the open tray menu's item whose label starts so, if any."""
        return self.eval(MENU_JS % json.dumps(prefix))

    def show_workspace(self, number):
        self.eval("const m = global.workspace_manager; "
                  "while (m.n_workspaces < %d) m.append_new_workspace(false, 0); "
                  "m.get_workspace_by_index(%d).activate(global.get_current_time()); true"
                  % (number, number - 1))

    def tray_icons(self, count, timeout=20):
        """The icons' centres once `count` show, laid out (an item is laid out again
        when its properties arrive)."""
        seen = []

        def settled():
            icons = self.eval(TRAY_JS) or []
            seen.append([(x, y) for x, y, _ in icons] if len(icons) == count and
                        all(x is not None for x, _, _ in icons) else None)
            return seen[-1] if len(seen) > 1 and seen[-1] and seen[-1] == seen[-2] else None
        return wait_for(settled, timeout, 0.3)

    def tray_icon(self, item_id):
        """Where the item with that Id is now: the extension may reorder its icons."""
        for x, y, found in self.eval(TRAY_JS) or []:
            if found == item_id:
                return x, y
        return None

    def close(self):
        self.quit_app()
        try:
            os.killpg(self.session.pid, signal.SIGTERM)
            self.session.wait(10)
        except (ProcessLookupError, subprocess.TimeoutExpired):
            try:
                os.killpg(self.session.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        stop_all(self.procs)
        shutil.rmtree(self.tmp, ignore_errors=True)
