"""A throwaway desktop for end-to-end tests: Xvfb, a private session bus with the
accessibility bus, openbox, a tray (trayer), and a fresh HOME for Tidewell."""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time


def start_xvfb(log, size, numbers, extra=()):
    """An Xvfb on a display number of its own, once it answers; its display and
    process. -displayfd proved unreliable under some process supervisors. Two
    desktops started at once may pick the same number: the loser's Xvfb exits, and
    it moves on to the next."""
    for number in numbers:
        if os.path.exists("/tmp/.X%d-lock" % number):
            continue
        display = ":%d" % number
        with open(log, "w") as err:
            xvfb = subprocess.Popen(["Xvfb", display, "-screen", "0", size + "x24", "-nolisten",
                                     "tcp", *extra], stdout=subprocess.DEVNULL, stderr=err)
        ready = wait_for(lambda: xvfb.poll() is not None or subprocess.run(
            ["xdpyinfo", "-display", display], capture_output=True).returncode == 0, 10)
        if ready and xvfb.poll() is None:
            return display, xvfb
    raise RuntimeError("no Xvfb could start (see %s)" % log)


def stop_all(procs):
    """Ends the processes, newest first, killing any that does not go within 5 s."""
    for p in reversed(procs):
        if p.poll() is None:
            p.terminate()
            try:
                p.wait(5)
            except subprocess.TimeoutExpired:
                p.kill()


def wait_for(predicate, timeout=10.0, interval=0.05):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(interval)
    return predicate()


def holds(predicate, duration, interval=0.05):
    """Whether the predicate stays true for the whole duration: for what must not
    happen. Checked throughout, and over at the first sight of it."""
    deadline = time.monotonic() + duration
    while time.monotonic() < deadline:
        if not predicate():
            return False
        time.sleep(interval)
    return bool(predicate())


def settles(grab, timeout=5.0):
    """Waits until two grabs 0.1 s apart agree (a grab of None never does); whether
    they did."""
    last = [None]

    def still():
        now = grab()
        settled = now is not None and now == last[0]
        last[0] = now
        return settled
    return wait_for(still, timeout, interval=0.1)


class Desktop:
    # Panel colours for the tray: trayer's own grey, or a solid dark or light one.
    PANELS = {None: ["--transparent", "false"],
              "dark": ["--transparent", "true", "--alpha", "0", "--tint", "0x1d1f21"],
              "light": ["--transparent", "true", "--alpha", "0", "--tint", "0xeeeeec"]}

    def __init__(self, tray=True, keyring=True, activation=True, panel=None):
        self.tmp = tempfile.mkdtemp(prefix="tidewell-e2e-")
        self.home = os.path.join(self.tmp, "home")
        runtime = os.path.join(self.tmp, "runtime")
        os.makedirs(self.home)
        os.makedirs(runtime, mode=0o700)
        self.procs = []
        self.xvfb_log = os.path.join(self.tmp, "xvfb.log")
        self.display, self.xvfb = start_xvfb(self.xvfb_log, "1280x800", range(90, 190))
        self.procs.append(self.xvfb)
        # Without activation nothing starts on demand: a secret store is there only
        # when a test starts one.
        config = ["--session"] if activation else ["--config-file=" + self._bus_config()]
        bus = subprocess.run(["dbus-daemon", *config, "--fork", "--print-address=1",
                              "--print-pid=1"], capture_output=True, text=True, check=True)
        address, pid = bus.stdout.split()[:2]
        self.bus_pid = int(pid)
        self.env = dict(os.environ, DISPLAY=self.display, DBUS_SESSION_BUS_ADDRESS=address,
                        HOME=self.home, XDG_RUNTIME_DIR=runtime,
                        XDG_DATA_HOME=os.path.join(self.home, ".local/share"),
                        XDG_CONFIG_HOME=os.path.join(self.home, ".config"),
                        QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
                        NO_AT_BRIDGE="0", GTK_A11Y="atspi")
        self.env.pop("WAYLAND_DISPLAY", None)
        self._spawn(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"])
        self.keyring = self.start_keyring() if keyring else None
        self._spawn(["openbox", "--sm-disable"])
        # trayer now and then exits when it starts while openbox is still taking
        # over the screen: give it a second chance before giving up.
        for _ in range(2 if tray else 0):
            trayer = self._spawn(["trayer", "--edge", "top", "--align", "right", "--height", "24",
                                  "--widthtype", "request", *self.PANELS[panel]])
            if wait_for(lambda: self.window_ids("^panel$"), 10):
                break
            trayer.kill()
        else:
            if tray:
                self.close()
                raise RuntimeError("the tray (trayer) did not start on %s" % self.display)
        if not wait_for(self.window_manager_ready):
            self.close()
            raise RuntimeError("openbox did not take over %s" % self.display)

    def _bus_config(self):
        path = os.path.join(self.tmp, "session.conf")
        with open(path, "w") as f:
            f.write('<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>'
                    '<auth>EXTERNAL</auth><policy context="default"><allow send_destination="*"'
                    ' eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>'
                    '</busconfig>')
        return path

    def start_keyring(self):
        """A gnome-keyring of this desktop's own, unlocked with a throwaway password,
        as a login session has it."""
        keyring = subprocess.Popen(["gnome-keyring-daemon", "--foreground", "--unlock",
                                    "--components=secrets"], env=self.env, stdin=subprocess.PIPE,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        keyring.stdin.write(b"throwaway")
        keyring.stdin.close()
        self.procs.append(keyring)
        has = ["dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
               "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner",
               "string:org.freedesktop.secrets"]
        if not wait_for(lambda: "true" in self.run(has).stdout, 10):
            raise RuntimeError("gnome-keyring did not start on the desktop's bus")
        return keyring

    def _spawn(self, cmd, **kw):
        env = getattr(self, "env", None)
        p = subprocess.Popen(cmd, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **kw)
        self.procs.append(p)
        return p

    def run(self, cmd, **kw):
        return subprocess.run(cmd, env=self.env, capture_output=True, text=True, **kw)

    def window_ids(self, name, visible=True):
        args = ["xdotool", "search"] + (["--onlyvisible"] if visible else []) + ["--name", name]
        out = self.run(args).stdout.split()
        return [int(w) for w in out]

    def wait_active(self, name, timeout=10.0):
        """Whether a window of that name became the active one, so that keys typed
        now reach it."""
        # The window manager may hand the input focus to a modal child while it
        # still names the parent active, so either one counts.
        def holders():
            ids = set()
            for query in ("getactivewindow", "getwindowfocus"):
                out = self.run(["xdotool", query]).stdout.strip()
                if out.isdigit():
                    ids.add(int(out))
            return ids

        def active():
            return bool(holders() & set(self.window_ids(name)))
        if wait_for(active, timeout):
            return True
        print(f"no window named {name!r} is active; active/focused: {sorted(holders())}, "
              f"named: {self.window_ids(name)}", file=sys.stderr)
        return False

    def tray_icons(self, wm_class="tidewell"):
        """Absolute centre points of the icons embedded in the tray for that class."""
        tree = self.run(["xwininfo", "-root", "-tree"]).stdout.splitlines()
        icons, inside, depth = [], False, 0
        for line in tree:
            indent = len(line) - len(line.lstrip())
            if '("panel" "trayer")' in line:
                inside, depth = True, indent
                continue
            if inside and indent <= depth and line.strip():
                inside = False
            m = re.search(r'\("([^"]*)" "([^"]*)"\)\s+(\d+)x(\d+)\+\S+\s+\+(-?\d+)\+(-?\d+)', line)
            if inside and m and wm_class in (m.group(1).lower(), m.group(2).lower()):
                w, h, x, y = (int(m.group(i)) for i in range(3, 7))
                icons.append((x + w // 2, y + h // 2))
        return icons

    def windows_of(self, wm_class="tidewell"):
        """The shown windows of that class, menus and tooltips included."""
        out = self.run(["xdotool", "search", "--onlyvisible", "--class", wm_class]).stdout
        return [int(w) for w in out.split()]

    def window_manager_ready(self):
        """Whether a window manager has announced itself on the root window."""
        check = self.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"]).stdout
        return "window id" in check

    def wait_painted(self, window_name=None, timeout=5.0):
        """Waits until the window (or the whole screen) is on screen and its pixels stop
        changing; whether they did."""
        from PIL import ImageGrab

        def grab():
            box = self.window_box(window_name) if window_name else ()
            if box is None:
                return None
            image = ImageGrab.grab(xdisplay=self.display)
            return (image.crop(box) if box else image).tobytes()
        return settles(grab, timeout)

    def window_box(self, window_name, margin=0):
        """The first such window's (left, top, right, bottom), or None."""
        ids = self.window_ids(window_name)
        if not ids:
            return None
        geo = self.run(["xdotool", "getwindowgeometry", "--shell", str(ids[0])]).stdout
        g = dict(line.split("=") for line in geo.split())
        x, y, w, h = (int(g[k]) for k in ("X", "Y", "WIDTH", "HEIGHT"))
        return (max(0, x - margin), max(0, y - margin), x + w + margin, y + h + margin)

    def click(self, x, y, button=1):
        self.run(["xdotool", "mousemove", str(x), str(y), "click", str(button)])

    def screenshot(self, path, window_name=None):
        from PIL import ImageGrab
        image = ImageGrab.grab(xdisplay=self.display)
        box = self.window_box(window_name, margin=12) if window_name else None
        (image.crop(box) if box else image).save(path)

    def tray_icons_or_report(self, timeout=20.0):
        """The tray icons, waiting for one; when none comes, saves a screenshot and the
        window tree next to the test's output for a look."""
        icons = wait_for(self.tray_icons, timeout)
        # A new icon is embedded first and laid out after: wait until it stays put.
        deadline = time.monotonic() + 3
        while icons and time.monotonic() < deadline:
            time.sleep(0.2)
            again = self.tray_icons()
            if again == icons:
                break
            icons = again
        if not icons:
            self.screenshot("/tmp/tidewell-e2e-no-tray.png")
            with open("/tmp/tidewell-e2e-no-tray.txt", "w") as out:
                out.write(self.run(["xwininfo", "-root", "-tree"]).stdout)
        return icons

    def diagnosis(self):
        with open(self.xvfb_log) as log:
            return "Xvfb %s: %s" % ("running" if self.xvfb.poll() is None else "exited %s" % self.xvfb.poll(),
                                    log.read()[-1500:])

    def close(self):
        stop_all(self.procs)
        try:
            os.kill(self.bus_pid, signal.SIGTERM)
        except ProcessLookupError:
            pass
        shutil.rmtree(self.tmp, ignore_errors=True)
