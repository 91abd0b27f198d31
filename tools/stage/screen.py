"""What a person does at a desktop, for scripts and tests: look at windows, point, press, type, and read what
a program tells assistive technology. Needs Debian's own Python (/usr/bin/python3), xdotool, xwininfo and
ImageMagick, and the display and message bus of the environment."""

import re
import subprocess
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def wait_for(what, condition, seconds=15):
    """Gives the first result of `condition` that is true; raises TimeoutError, naming `what`, if none is."""
    deadline = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise TimeoutError(f"{what}: not within {seconds} s")
        time.sleep(0.05)


# --- Pointer and keyboard -----------------------------------------------------------------------------------


def point(x, y):
    output("xdotool", "mousemove", "--sync", str(round(x)), str(round(y)))


def click(x, y, button=1):
    point(x, y)
    output("xdotool", "click", str(button))


def drag(start, end):
    point(*start)
    output("xdotool", "mousedown", "1")
    for part in (0.3, 0.6, 1):
        point(*(a + (b - a) * part for a, b in zip(start, end)))
        time.sleep(0.05)
    output("xdotool", "mouseup", "1")


def type_text(text):
    output("xdotool", "type", "--delay", "30", text)


def press_key(name):
    output("xdotool", "key", name)


# --- Windows ------------------------------------------------------------------------------------------------


def focused_window():
    return int(output("xdotool", "getwindowfocus"))


def stacking():
    """Top-level windows that are on the screen, the uppermost first, by number."""
    numbers = []
    for line in output("xwininfo", "-root", "-children").splitlines():
        word = line.split()[0] if line.strip() else ""
        if word.startswith("0x"):
            numbers.append(int(word, 16))
    return [number for number in numbers if is_viewable(number)]


def is_viewable(window):
    found = subprocess.run(["xwininfo", "-id", str(window)], stdout=subprocess.PIPE, text=True,
                           stderr=subprocess.DEVNULL)
    return "Map State: IsViewable" in found.stdout


def geometry(window):
    """(x, y, width, height) on the screen."""
    values = {}
    for line in output("xwininfo", "-id", str(window)).splitlines():
        key, _, value = line.strip().partition(":")
        values[key] = value.strip()
    return tuple(int(values[key]) for key in
                 ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height"))


def top_level(window):
    """The window on the screen's own level that contains `window`: with a window manager, its frame. None if
    it is gone."""
    while True:
        tree = subprocess.run(["xwininfo", "-id", str(window), "-tree"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True).stdout
        numbers = {key: int(number, 16) for key, number in re.findall(r"(Root|Parent) window id: (0x\w+)", tree)}
        if len(numbers) < 2:
            return None
        if numbers["Parent"] == numbers["Root"]:
            return window
        window = numbers["Parent"]


def is_of(window, pid):
    """Whether the window says that it is that process's."""
    found = subprocess.run(["xprop", "-id", str(window), "_NET_WM_PID"], stdout=subprocess.PIPE, text=True,
                           stderr=subprocess.DEVNULL)
    return found.stdout.strip().endswith(f"= {pid}")


def windows_named(title):
    """Numbers of the windows with that title that are on the screen."""
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"],
                           stdout=subprocess.PIPE, text=True)
    return [int(line) for line in found.stdout.split()]


def fill_screen(window):
    """Makes a window a full-screen one, in front and with the focus."""
    output("wmctrl", "-i", "-r", str(window), "-b", "add,fullscreen")
    wait_for("a full screen", lambda: geometry(window) == (0, 0, 1280, 800))
    output("wmctrl", "-i", "-a", str(window))
    wait_for("the focus", lambda: focused_window() == window)


def picture(file, area=None):
    """Saves the screen, or the part (x, y, width, height) of it."""
    crop = ["-crop", "{2}x{3}+{0}+{1}".format(*area), "+repage"] if area else []
    output("import", "-silent", "-window", "root", *crop, str(file))


def pixel(x, y):
    """(red, green, blue) on the screen, each 0 to 255."""
    text = output("import", "-silent", "-window", "root", "-crop", f"1x1+{round(x)}+{round(y)}", "-depth", "8",
                  "txt:-")
    inside = text.splitlines()[-1].split("(")[1].split(")")[0]
    return tuple(round(float(value)) for value in inside.split(",")[:3])


# --- The accessibility tree ---------------------------------------------------------------------------------


class Program:
    """A running program as assistive technology sees it."""

    def __init__(self, pid):
        self._pid = pid

    def _root(self):
        desktop = Atspi.get_desktop(0)
        desktop.set_cache_mask(Atspi.Cache.NONE)
        for index in range(desktop.get_child_count()):
            child = desktop.get_child_at_index(index)
            try:
                if child and child.get_process_id() == self._pid:
                    return child
            except GLib.Error:
                continue  # one that is ending
        return None

    def elements(self, under=None):
        """Everything that is on the screen, from the outside in: (element, role, name)."""
        pending = [under or self._root()]
        while pending:
            element = pending.pop(0)
            if element is None:
                continue
            try:
                states = element.get_state_set()
                # Newer systems call a push button a button.
                role = {"button": "push button"}.get(element.get_role_name(), element.get_role_name())
                role = "push button" if role == "button" else role  # its name since AT-SPI 2.53
                # An application has no place on the screen itself.
                if role != "application" and not states.contains(Atspi.StateType.SHOWING):
                    continue
                yield element, role, element.get_name() or ""
                pending += [element.get_child_at_index(i) for i in range(element.get_child_count())]
            except GLib.Error:
                continue  # gone while it was looked at

    def find(self, name, role=None, under=None):
        """The element by that name, or whose name the function takes, and role; None if there is none."""
        matches = name if callable(name) else name.__eq__
        for element, its_role, its_name in self.elements(under):
            if matches(its_name) and role in (None, its_role):
                return element
        return None

    def wait(self, name, role=None, seconds=15, under=None):
        what = f"an element {name if isinstance(name, str) else ''!r} {role or ''}"
        return wait_for(what, lambda: self.find(name, role, under), seconds)

    def names(self, under=None):
        return [name for _, _, name in self.elements(under) if name]

    def windows(self):
        """The program's windows that are on the screen."""
        root = self._root()
        children = [root.get_child_at_index(i) for i in range(root.get_child_count())] if root else []
        return [child for child in children
                if child and child.get_state_set().contains(Atspi.StateType.SHOWING)]

    def click(self, name, role=None, seconds=15):
        """Waits for the element, and for it to be enabled and to stand still, and clicks its middle."""
        element = self.wait(name, role, seconds)
        wait_for(f"{name!r} to be enabled", lambda: is_enabled(element))
        click(*middle(element))
        return element

    def dump(self):
        """The tree as text, for reports of failures."""
        return "\n".join(f"{role}: {name!r} {place(element)}" for element, role, name in self.elements())


def is_enabled(element):
    return element.get_state_set().contains(Atspi.StateType.ENABLED)


def is_checked(element):
    return element.get_state_set().contains(Atspi.StateType.CHECKED)


def place(element):
    """(x, y, width, height) on the screen."""
    try:
        rectangle = element.get_extents(Atspi.CoordType.SCREEN)
    except GLib.Error:
        return None
    return rectangle.x, rectangle.y, rectangle.width, rectangle.height


def middle(element):
    """The middle of an element once it stands still."""
    last = [None]

    def still():
        now = place(element)
        if now and now == last[0] and now[2] > 0:
            return now
        last[0] = now
        return None

    x, y, width, height = wait_for("an element at rest", still)
    return x + width / 2, y + height / 2
