"""Finding and pressing Tidewell's controls through the accessibility tree."""
import time


def _registry():
    import pyatspi  # imported late: it reads the session bus address once
    return pyatspi


def application(name="Tidewell", timeout=40, pid=None):
    """The application of that name (and process, when several run)."""
    pyatspi = _registry()
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        desktop = pyatspi.Registry.getDesktop(0)
        for i in range(desktop.childCount):
            app = desktop.getChildAtIndex(i)
            if app is not None and app.name and app.name.lower() == name.lower() and \
                    (pid is None or app.get_process_id() == pid):
                return app
        time.sleep(0.2)
    raise AssertionError("application %s is not in the accessibility tree" % name)


def _named(root, name, role, showing):
    pyatspi = _registry()
    return pyatspi.utils.findDescendant(
        root, lambda o: o is not None and o.name == name
        and (role is None or o.getRoleName() == role)
        and (not showing or o.getState().contains(pyatspi.STATE_SHOWING)))


def find(root, name, role=None, timeout=10, showing=True):
    """The first descendant with that accessible name (and role name, if given)."""
    deadline = time.monotonic() + timeout
    while True:
        found = _named(root, name, role, showing)
        if found is not None or time.monotonic() > deadline:
            if found is None:
                raise AssertionError("no control named %r" % name)
            return found
        time.sleep(0.2)


def gone(root, name, role=None, timeout=10):
    """Waits until no showing descendant has that name (and role); whether none has."""
    deadline = time.monotonic() + timeout
    while True:
        if _named(root, name, role, True) is None:
            return True
        if time.monotonic() > deadline:
            return False
        time.sleep(0.1)


def press(obj):
    action = obj.queryAction()
    names = [action.getName(i) for i in range(action.nActions)]
    for wanted in ("Press", "Toggle", "press", "toggle", "click"):
        if wanted in names:
            action.doAction(names.index(wanted))
            return
    action.doAction(0)


def is_checked(obj):
    pyatspi = _registry()
    return obj.getState().contains(pyatspi.STATE_CHECKED)


def text_of(obj):
    try:
        t = obj.queryText()
        return t.getText(0, -1)
    except NotImplementedError:
        return obj.name


def switch_on(obj, timeout=5):
    """Turns a switch on and waits until it says so. A press sent while the app is
    still publishing its accessibility tree can be lost; it is then sent once more."""
    _switch(obj, True, timeout)


def switch_off(obj, timeout=5):
    _switch(obj, False, timeout)


def _switch(obj, on, timeout):
    for _ in range(2):
        press(obj)
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if is_checked(obj) == on:
                return
            time.sleep(0.05)
    raise AssertionError("switch %r did not turn %s" % (obj.name, "on" if on else "off"))


def find_in(root, group, name, timeout=10):
    """The control named `name` inside the container named `group` (e.g. a row)."""
    pyatspi = _registry()
    deadline = time.monotonic() + timeout
    while True:
        try:
            candidates = pyatspi.utils.findAllDescendants(
                root, lambda o: o is not None and o.name == name)
        except TypeError:
            candidates = []  # a window went while the tree was walked; look again
        for found in candidates:
            parent = found.parent
            while parent is not None and parent != root:
                if parent.name == group:
                    return found
                parent = parent.parent
        if time.monotonic() > deadline:
            raise AssertionError("no control named %r in %r" % (name, group))
        time.sleep(0.2)
