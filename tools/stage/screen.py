"""What a person does at a desktop, for scripts and tests: look at windows, point, press, type, and read what
a program tells assistive technology. It needs Debian's own Python (/usr/bin/python3), xdotool, xwininfo and
ImageMagick, and the display and message bus that tools/stage/private-desktop gives."""

import ctypes
import functools
import json
import os
import re
import socket
import statistics
import struct
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


class X11Input:
    """The pointer and keyboard of an X server."""

    inaccuracy = 0  # how many points the pointer may be away from where it was moved

    def move(self, x, y):
        output("xdotool", "mousemove", str(x), str(y))

    def button(self, pressed, number=1):
        output("xdotool", "mousedown" if pressed else "mouseup", str(number))

    def type(self, text):
        output("xdotool", "type", "--delay", "30", text)

    def focus(self):
        return output("xdotool", "getwindowfocus")

    def show_workspace(self, number):
        output("xdotool", "set_desktop", str(number))

    def picture(self):
        return eye().picture()


class SwayInput:
    """The pointer and keyboard of a Wayland desktop, lent over the remote frame buffer protocol. Only the
    compositor knows which window has the focus and what the screen looks like."""

    inaccuracy = 1

    def __init__(self, path):
        self._at = (0, 0)
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(path)
        self._socket.sendall(self._read(12))  # its version
        self._read(self._read(1)[0])
        self._socket.sendall(b"\1")  # no authentication
        self._read(4)
        self._socket.sendall(b"\1")  # shared with others
        self._read(int.from_bytes(self._read(24)[20:], "big"))

    def _read(self, size):
        return self._socket.recv(size, socket.MSG_WAITALL)

    def move(self, x, y, pressed=None):
        self._at = (x, y)
        self._pressed = getattr(self, "_pressed", False) if pressed is None else pressed
        self._socket.sendall(struct.pack(">BBHH", 5, self._pressed, x, y))

    def button(self, pressed):
        self.move(*self._at, pressed)

    def type(self, text):
        for letter in text:
            for pressed in (True, False):
                self._socket.sendall(struct.pack(">BBxxI", 4, pressed, ord(letter)))

    def focus(self):
        def focused(node):
            if node["focused"]:
                return node["id"]
            return next(filter(None, map(focused, node["nodes"] + node["floating_nodes"])), None)

        return focused(json.loads(output("swaymsg", "--raw", "--type", "get_tree")))

    def show_workspace(self, number):
        output("swaymsg", "workspace", str(number + 1))

    def picture(self):
        picture = subprocess.run(["grim", "-s", "1", "-t", "ppm", "-"], check=True, stdout=subprocess.PIPE).stdout
        header = re.match(rb"P6\s(\d+)\s(\d+)\s255\s", picture)
        return Picture(int(header[1]), int(header[2]), picture[header.end():], 3)


class Picture:
    """What is on the screen, `size` bytes for a point."""

    def __init__(self, width, height, points, size):
        self.width, self.height, self.points, self._size = width, height, points, size

    def pixel(self, x, y):
        """(red, green, blue), each 0 to 255; from the other side if negative."""
        start = self._size * (round(y) % self.height * self.width + round(x) % self.width)
        point = tuple(self.points[start:start + 3])
        return point if self._size == 3 else point[::-1]

    def area_on(self, color):
        """(x, y, width, height) of the one dark thing on a ground of that colour, wherever the pointer is; None if
        there is none. The screen's very edges, which scaling changes, do not count, nor does a blurred edge."""
        ground, edge, rows = bytes(color), 4, []
        for y in range(edge, self.height - edge):
            start = 3 * (y * self.width + edge)
            row = self.points[start:start + 3 * (self.width - 2 * edge)]
            if row == ground * (len(row) // 3):
                continue
            others = [x // 3 for x in range(0, len(row), 3) if row[x] < color[0] - 60]
            if others and others[-1] - others[0] > 100:
                rows.append((y, edge + others[0], edge + others[-1]))
        if not rows:
            return None
        # The thing may have round corners, and the pointer may stand beside it.
        left, right = (statistics.mode(row[side] for row in rows) for side in (1, 2))
        return left, rows[0][0], right - left + 1, rows[-1][0] - rows[0][0] + 1


class Eye:
    """Looks at the screen of an X server, quickly, and changes the order of windows."""

    class Image(ctypes.Structure):
        _fields_ = [*((name, ctypes.c_int) for name in ("width", "height", "offset", "format")),
                    ("data", ctypes.c_void_p)]

    def __init__(self):
        self._x = ctypes.CDLL("libX11.so.6")
        self._x.XOpenDisplay.restype = ctypes.c_void_p
        self._x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
        self._x.XDefaultRootWindow.restype = ctypes.c_ulong
        self._x.XGetImage.argtypes = [ctypes.c_void_p, ctypes.c_ulong, *2 * [ctypes.c_int],
                                      *2 * [ctypes.c_uint], ctypes.c_ulong, ctypes.c_int]
        self._x.XGetImage.restype = ctypes.POINTER(self.Image)
        self._x.XDestroyImage.argtypes = [ctypes.c_void_p]
        self._display = self._x.XOpenDisplay(None)
        if not self._display:
            raise RuntimeError("there is no X display to look at (tools/stage/private-desktop makes one)")
        self._root = self._x.XDefaultRootWindow(self._display)

    def picture(self, area=None):
        """The screen, or the part (x, y, width, height) of it."""
        x, y, width, height = area or geometry("root")
        z_pixmap = 2
        image = self._x.XGetImage(self._display, self._root, x, y, width, height, 0xFFFFFF, z_pixmap)
        points = ctypes.string_at(image.contents.data, 4 * width * height)
        self._x.XDestroyImage(image)
        return Picture(width, height, points, 4)

    def lower(self, window):
        """Puts a window that the window manager does not manage below all others."""
        self._x.XLowerWindow(ctypes.c_void_p(self._display), ctypes.c_ulong(window))
        self._x.XSync(ctypes.c_void_p(self._display), 0)


@functools.lru_cache
def eye():
    return Eye()


IS_WAYLAND = "TOLVERA_REMOTE_INPUT" in os.environ
desktop = SwayInput(os.environ["TOLVERA_REMOTE_INPUT"]) if IS_WAYLAND else X11Input()


def settle():
    """Waits until nothing has changed on the screen for a while."""
    last = [desktop.picture().points, time.monotonic()]

    def is_still():
        now = desktop.picture().points
        if now != last[0]:
            last[:] = now, time.monotonic()
        return time.monotonic() - last[1] > 0.3

    wait_for("a screen at rest", is_still)


def point(x, y):
    desktop.move(round(x), round(y))


def click(x, y, button=1):
    point(x, y)
    output("xdotool", "click", str(button))


def press(x, y):
    """Presses as a hand does: the pointer comes near before it is there."""
    for distance in (1, 0):
        point(x - distance, y - distance)
        settle()
    desktop.button(True)
    settle()


def release():
    desktop.button(False)
    settle()


def drag(start, end, steps=16):
    """Presses at a point, moves fast and then slower, as a hand does, and lets go."""
    press(*start)
    for left in range(steps - 1, -1, -1):
        point(*(b - (b - a) * left * left / (steps * steps) for a, b in zip(start, end)))
        time.sleep(0.008)
    settle()
    release()


def type_text(text):
    desktop.type(text)


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


def properties(window):
    """What the window server tells of a window; empty if it is gone."""
    return subprocess.run(["xwininfo", "-all", "-id", str(window)], stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.DEVNULL).stdout


def is_viewable(window):
    return "Map State: IsViewable" in properties(window)


def panel_of(pid):
    """The program's caption panel: a window of its size that no window manager manages. None if there is none."""
    for window in stacking():
        if "Override Redirect State: yes" in properties(window) and is_of(window, pid):
            if geometry(window)[2] >= 360 and geometry(window)[3] <= 460:
                return window
    return None


def geometry(window):
    """(x, y, width, height) on the screen."""
    values = {}
    which = ["-root"] if window == "root" else ["-id", str(window)]
    for line in output("xwininfo", *which).splitlines():
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
    """True if the window says that it belongs to the process."""
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
    return desktop.picture().pixel(x, y)


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
