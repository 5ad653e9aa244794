#!/usr/bin/python3
"""scripts/check-architecture refuses a global way to a service: planted in a small
tree of its own, a shared() accessor, a call through one and a static setter are
each reported and fail the check; Qt's own instance() and the preferences' setters
pass."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check-architecture"


def check(files):
    with tempfile.TemporaryDirectory() as root:
        for name, text in files.items():
            path = pathlib.Path(root, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        run = subprocess.run([sys.executable, str(CHECK), "--root", root], capture_output=True,
                             text=True)
        return run.returncode, run.stdout


class GlobalsAreRefused(unittest.TestCase):
    def test_planted_globals_fail_and_clean_code_passes(self):
        clean = {
            "src/core/Clock.h": "class Clock {};\n",
            "src/system/Preferences.h": "class Preferences { static void setSoundsEnabled(bool); };\n",
            "src/shell/Quit.cpp": "void quit() { QCoreApplication::instance()->quit(); }\n",
        }
        self.assertEqual(check(clean), (0, "architecture ok\n"))
        planted = {
            "src/core/Store.h": "class Store {\npublic:\n    static Store& shared();\n};\n",
            "src/timer/Use.cpp": "void f() { Store::shared().save(); }\n",
            "server/Hook.h": "class Hook {\n    static void setHandler(int);\n};\n",
        }
        status, out = check({**clean, **planted})
        self.assertEqual(status, 1)
        self.assertIn("src/core/Store.h:3: a global accessor shared()", out)
        self.assertIn("src/timer/Use.cpp:1: a global accessor shared()", out)
        self.assertIn("server/Hook.h:2: a static setter setHandler()", out)
        self.assertNotIn("Preferences", out)
        self.assertNotIn("Quit.cpp", out)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
