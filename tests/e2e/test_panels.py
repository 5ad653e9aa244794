#!/usr/bin/python3
"""End-to-end: floating panels of the real tidewell binary as the window manager
treats them. A panel is sticky and kept off the taskbar from its first map, a
click on it leaves the keyboard with the window that had it, and a close sent by
the window manager (as at logout) keeps its placement and frame for the next start.

Usage: test_panels.py <tidewell binary>
"""
import json
import os
import signal
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from desktop import holds, wait_for  # noqa: E402
from tidewell_case import TidewellCase, main  # noqa: E402


class PanelsOnTheDesktop(TidewellCase):
    tray = False

    def panel(self):
        ids = self.desktop.window_ids("^Tasks$")
        return ids[0] if ids else None

    def geometry(self, window):
        out = self.desktop.run(["xdotool", "getwindowgeometry", "--shell", str(window)]).stdout
        g = dict(line.split("=") for line in out.split())
        return tuple(int(g[k]) for k in ("X", "Y", "WIDTH", "HEIGHT"))

    def saved_x(self):
        rows = self.store_rows("SELECT desktopFrameJSON FROM widget_placement "
                               "WHERE widgetId = 'tasks'")
        return round(json.loads(rows[0][0]).get("x", -1)) if rows and rows[0][0] else None

    def test_panel_keeps_its_place_through_a_session_end(self):
        desktop = self.desktop
        self.a11y.switch_on(self.a11y.find(self.root, "Tasks floating"))
        self.assertTrue(wait_for(self.panel), "no panel")
        panel = self.panel()
        state = desktop.run(["xprop", "-id", str(panel), "_NET_WM_STATE",
                             "_NET_WM_DESKTOP"]).stdout
        for flag in ("_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"):
            self.assertIn(flag, state)
        # On every desktop: some window managers say so with the state, openbox with
        # the desktop number "all".
        self.assertTrue("_NET_WM_STATE_STICKY" in state or "= 4294967295" in state, state)

        # Clicking the panel leaves the keyboard where it was.
        hub = desktop.window_ids("^Tidewell$")[0]
        desktop.run(["xdotool", "windowactivate", "--sync", str(hub)])
        x, y, w, h = self.geometry(panel)
        desktop.click(x + w // 2, y + h - 12)
        self.assertTrue(holds(lambda: desktop.run(["xdotool", "getactivewindow"]).stdout.strip()
                              == str(hub), 0.5), "the panel took the keyboard")

        desktop.run(["xdotool", "windowmove", str(panel), "100", "150"])
        self.assertTrue(wait_for(lambda: self.geometry(panel)[:2] == (100, 150), 5))
        # The store keeps the frame from the screen's bottom edge; x tells the move.
        self.assertTrue(wait_for(lambda: self.saved_x() == 100, 5),
                        "the move was not saved: x %r" % self.saved_x())
        before = self.geometry(panel)

        # Logout: the window manager closes every window, then the session ends the app.
        desktop.run(["wmctrl", "-i", "-c", hex(panel)])
        self.assertTrue(holds(lambda: self.panel() == panel, 0.5), "the panel closed")
        self.app.send_signal(signal.SIGTERM)
        self.assertEqual(self.app.wait(15), 0)

        self.relaunch()
        self.assertTrue(wait_for(self.panel, 20), "the panel is gone after the restart")
        self.assertTrue(wait_for(lambda: self.geometry(self.panel()) == before, 5),
                        "%r != %r" % (self.geometry(self.panel()), before))

    def test_panels_opened_together_do_not_overlap(self):
        # Three at once, over the hub: each gets a spot of its own.
        for widget in ("Pomodoro", "Habits"):
            self.a11y.switch_on(self.a11y.find(self.root, widget + " floating"))
        frames = {}
        for title in ("Tasks", "Pomodoro", "Habits"):
            self.assertTrue(wait_for(lambda: self.desktop.window_ids("^%s$" % title)), title)
            window = self.desktop.window_ids("^%s$" % title)[0]
            frames[title] = self.geometry(window)
            # A normal window (KWin keeps it while another application is active) that
            # is also a utility one (sway floats it), on every desktop once mapped.
            props = self.desktop.run(["xprop", "-id", str(window), "_NET_WM_WINDOW_TYPE",
                                      "_NET_WM_DESKTOP"]).stdout
            self.assertIn("_NET_WM_WINDOW_TYPE_NORMAL, _NET_WM_WINDOW_TYPE_UTILITY", props)
            self.assertIn("4294967295", props)
        hub = self.geometry(self.desktop.window_ids("^Tidewell$")[0])
        rects = list(frames.values())
        for i, (x, y, w, h) in enumerate(rects):
            for (ox, oy, ow, oh) in rects[i + 1:] + [hub]:
                overlap = x < ox + ow and ox < x + w and y < oy + oh and oy < y + h
                self.assertFalse(overlap, (frames, hub))

        # A sheet from a panel opens above it, though the panel is kept above others.
        self.a11y.press(self.a11y.find(self.root, "Add your first habit"))
        self.assertTrue(wait_for(lambda: self.desktop.window_ids("^New habit$")), "no editor")
        panel = self.desktop.window_ids("^Habits$")[0]
        editor = self.desktop.window_ids("^New habit$")[0]

        def stacking():
            out = self.desktop.run(["xprop", "-root", "_NET_CLIENT_LIST_STACKING"]).stdout
            return [int(w, 16) for w in out.split("#")[1].split(",")]
        self.assertTrue(wait_for(lambda: stacking().index(editor) > stacking().index(panel), 5),
                        "the editor opened beneath the panel")
        self.desktop.run(["xdotool", "key", "--window", str(editor), "Escape"])


if __name__ == "__main__":
    main()
