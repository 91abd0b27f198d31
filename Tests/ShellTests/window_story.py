#!/usr/bin/python3
"""The program's promises on a real window server. Inside tools/stage/private-desktop:
window_story.py FOLDER-WITH-THE-PROGRAMS OTHER-PROGRAM CHAPTER"""

import os
import pathlib
import signal
import socket
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools/stage"))
try:
    import screen
except (ImportError, ValueError):
    print("the bindings of the accessibility bus are not installed")
    sys.exit(77)
from notifications import Notifications
from screen import desktop, drag, geometry, wait_for
from stage import Stage, end, main_window, promise, tell
from tray import Tray

OTHER_COLOR = (200, 40, 160)


def is_other(color):
    return all(abs(a - b) <= 3 for a, b in zip(color, OTHER_COLOR))


class Windows:
    """The program with its caption panel and made-up captions, without a service, beside another program."""

    def __init__(self, stage, other):
        self._stage, self._other, self._beside = stage, other, None
        stage.url = "http://127.0.0.1:9/livetranslate"
        stage.prefer(seenOnboarding=True, uiLanguage="english", TolveraPreviewOverlay=True)

    def launch(self, **environment):
        self._stage.environment.update(environment)
        return self._stage.start_program()[0]

    def launch_with_panel(self):
        self.process = self.launch()
        if screen.IS_WAYLAND:
            wait_for("the panel", lambda: len(screen.Program(self.process.pid).windows()) == 2)
        else:
            self.panel = wait_for("the panel", lambda: screen.panel_of(self.process.pid))
        screen.settle()
        if screen.IS_WAYLAND and self._beside and self._beside.poll() is None:
            screen.output("swaymsg", '[title="other program"] focus')
            screen.settle()

    def start_other(self, platform="xcb"):
        other = self._stage.start(self._other, "-platform", platform, log="keys")
        wait_for("the other program on the whole screen",
                 lambda: all(is_other(desktop.picture().pixel(at, at)) for at in (3, -3)))
        screen.settle()
        self._beside = other
        return other

    # --- The panel --------------------------------------------------------------------------------------------

    def frame(self):
        """Where the panel is; on Wayland where it is seen, above the other program."""
        if not screen.IS_WAYLAND:
            return geometry(self.panel)
        return wait_for("the panel above the other program", lambda: desktop.picture().area_on(OTHER_COLOR))

    def ground(self):
        """In the card, below the text."""
        x, y, width, height = self.frame()
        return x + width // 2, y + height - 24

    def text(self):
        """On the caption, the second line from the top."""
        return self.frame()[0] + 40, self.frame()[1] + 46

    def is_at(self, *wanted):
        return all(abs(a - b) <= desktop.inaccuracy for a, b in zip(self.frame(), wanted))

    def is_seen(self):
        picture, (x, y, width, height) = desktop.picture(), self.frame()
        bright = sum(min(picture.pixel(column, row)) > 200
                     for row in range(y, y + height, 2) for column in range(x, x + width, 2))
        return bright > 25

    def stands_on(self, x, y, width, height):
        """Whether the panel comes to stand, and is seen, where its shares of that screen say."""
        saved = self._stage.preferences()
        own_width, own_height = self.frame()[2:]
        wanted = (x + saved.get("overlayX", 0.5) * width - own_width / 2,
                  y + height - saved.get("overlayY", 0.22) * height - own_height)

        # The X server inside a compositor rounds the size of a scaled screen to 8 points.
        near = 4 if screen.IS_WAYLAND else 1

        def stands():
            return all(abs(a - b) <= near for a, b in zip(self.frame(), wanted)) and self.is_seen()

        try:
            return wait_for("the panel's place", stands, 10)
        except TimeoutError:
            print(f"the panel is at {self.frame()}, and should be at {wanted}")
            return False

    def above(self):
        for platform in ("wayland", "xcb") if screen.IS_WAYLAND else ("xcb",):
            print(f" beside a program that uses {platform}")
            self.launch_with_panel()
            # Some window managers put a full-screen window above the panel. These do not, so it begins below.
            if not screen.IS_WAYLAND:
                screen.eye().lower(self.panel)
            other = self.start_other(platform)
            promise("the panel is above a full-screen window that comes later",
                    not is_other(screen.pixel(*self.ground())))
            self._stage.end(self.process)
            self.launch_with_panel()
            if not screen.IS_WAYLAND:
                window = screen.windows_named("other program")[0]
                promise("the panel does not take the focus when it comes", screen.focused_window() != self.panel)
                screen.output("wmctrl", "-i", "-a", str(window))
                screen.settle()
            focus = desktop.focus()
            promise("the panel is above a full-screen window that was there first",
                    not is_other(screen.pixel(*self.ground())) and is_other(screen.pixel(3, 3)))
            promise("nothing of the panel is seen around its card", is_other(screen.pixel(*self.frame()[:2])))
            x, y = self.ground()
            drag((x, y), (x + 40, y - 60))
            screen.press(*self.text())
            screen.release()
            desktop.type("abc")
            wait_for("the keys", lambda: self._stage.log("keys").endswith("abc"))
            promise("focus and keys stay with the other program through a drag and a click",
                    desktop.focus() == focus)
            desktop.show_workspace(1)
            screen.settle()
            promise("the panel is on every workspace", not is_other(screen.pixel(3, 3)) and self.is_seen())
            desktop.show_workspace(0)
            self._stage.end(other)
            self._stage.end(self.process)

    def gestures(self):
        if screen.IS_WAYLAND:
            self.start_other("wayland")
        self.launch_with_panel()
        x, y, width, height = self.frame()
        ground = self.ground()
        drag(ground, (ground[0] - 70, ground[1] + 50))
        promise("the panel is dragged by its background", self.is_at(x - 70, y + 50, width, height))
        placed = self.frame()
        drag(self.text(), (self.text()[0] + 200, self.text()[1]))
        promise("selecting its text does not move it", self.frame() == placed)
        self._stage.end(self.process)
        self.launch_with_panel()
        promise("the next time it stands where it stood", self.is_at(*placed))

        x, y, width, height = self.frame()
        middle = y + height // 2
        drag((x + width - 3, middle), (x + width - 83, middle))
        promise("the panel is resized at its right edge", self.is_at(x, y, width - 80, height))
        drag((x + 6, y + 6), (x + 6, y - 34))
        promise("the panel is resized at a corner", self.is_at(x, y - 40, width - 80, height + 40))
        x, y, width, height = self.frame()
        drag((x + width - 2, middle), (x + width + 118, middle))
        promise("the panel is grown by a pointer that hurries ahead", self.is_at(x, y, width + 120, height))
        x, y, width, height = self.frame()
        drag((x + 2, middle), (x + width + 100, middle))
        promise("the panel is no narrower than its limit", self.is_at(x + width - 360, y, 360, height))
        saved = self._stage.preferences()
        promise("its size is kept", (saved["overlayWidth"], saved["overlayHeight"]) == self.frame()[2:])

    def screens(self):
        def turn(output, *options):
            screen.output("xrandr", "--output", output, *options)

        beside, small, large = (1280, 0, 1024, 768), (0, 0, 1024, 768), (0, 0, 1280, 800)
        self.launch_with_panel()
        turn("DUMMY0", "--mode", "1024x768")
        promise("the panel keeps its place when its screen changes its size", self.stands_on(*small))
        turn("DUMMY0", "--mode", "1280x800")
        screen.output("xrandr", "--addmode", "DUMMY1", "1024x768")
        turn("DUMMY1", "--mode", "1024x768", "--right-of", "DUMMY0")
        promise("it stays when another screen comes", self.stands_on(*large))
        self._stage.end(self.process)
        screen.point(1500, 300)
        self.launch_with_panel()
        promise("it comes to the screen of the pointer", self.stands_on(*beside))
        x, y = self.ground()
        drag((x, y), (x + 60, y - 150))
        promise("dragged on another screen it keeps shares of that", self.stands_on(*beside))
        turn("DUMMY1", "--off")
        promise("it comes to a screen that is there when its own goes", self.stands_on(*large))

    def outputs(self):
        """A compositor's screens; it chooses the one for the panel."""
        def sway(*words):
            screen.output("swaymsg", *words)

        def launch():
            self.launch_with_panel()
            sway("[app_id=org.tolvera.Tolvera] kill")  # its main window, which closes

        beside, large = (1280, 0, 1024, 800), (0, 0, 1280, 800)
        sway("output", "*", "background", "#{:02x}{:02x}{:02x}".format(*OTHER_COLOR), "solid_color")
        launch()
        sway("create_output")
        sway("output HEADLESS-2 resolution 1024x800 position 1280 0; output HEADLESS-1 position 0 0")
        promise("the panel stays when another screen comes", self.stands_on(*large))
        self._stage.end(self.process)
        sway("focus output HEADLESS-2")
        launch()
        promise("it comes to the compositor's current screen", self.stands_on(*beside))
        sway("output HEADLESS-2 disable")
        promise("it comes to a screen that is there when its own goes", self.stands_on(*large))

    def low_screen(self):
        """Both ordinary windows, with their frames and the buttons that matter, on a screen lower than they are."""
        screen.output("xrandr", "--output", "DUMMY0", "--mode", "640x480")
        self._stage.prefer(seenOnboarding=False, uiLanguage="english")
        process, program = self._stage.start_program()
        for name in ("Got it", "Out of time"):
            def inside():
                box = program.wait(name).get_extents(screen.Atspi.CoordType.SCREEN)
                return 0 <= box.x and box.x + box.width <= 640 and 0 <= box.y and box.y + box.height <= 480
            promise(f'the button "{name}" is on the screen', wait_for(name, inside))
        for window in screen.windows_named("Tolvera.*"):
            if screen.is_viewable(window):
                x, y, width, height = geometry(screen.top_level(window))
                promise(f"the frame {x}, {y}, {width}, {height} is on the screen",
                        min(x, y) >= 0 and x + width <= 640 and y + height <= 480)

    def scales(self):
        def size():
            return desktop.picture().width, desktop.picture().height

        self.start_other("wayland")
        self.launch_with_panel()
        for scale in (1.25, 1.5, 2):
            before = size()
            screen.output("swaymsg", "output", "HEADLESS-1", "scale", str(scale))
            wait_for("the other size", lambda: size() != before)
            promise(f"the panel keeps its place when the scale becomes {scale}", self.stands_on(0, 0, *size()))

    # --- The program ------------------------------------------------------------------------------------------

    def shows_window(self, process):
        def window():
            found = main_window()
            return found if found and screen.is_of(found, process.pid) else None

        return wait_for("the main window", window, 30)

    def comes_to_front(self, process):
        return wait_for("the window in front", lambda: screen.focused_window() == self.shows_window(process))

    def program(self):
        notifications = Notifications()
        first = self.launch()
        self.shows_window(first)
        self.start_other()
        promise("a second launch ends with status 0", self.launch().wait(15) == 0)
        promise("it brings the first one's window to the front", self.comes_to_front(first))
        screen.press_key("ctrl+w")
        wait_for("the closed window", lambda: main_window() is None)
        promise("closing the window leaves the program running", first.poll() is None)
        promise("without a tray it says where it is found", wait_for("the notification", lambda: any(
            "Launch Tolvera again" in text for _, text, *_ in notifications.shown)))
        promise("a further launch ends with status 0", self.launch().wait(15) == 0)
        promise("it brings the closed window back", self.comes_to_front(first))
        screen.press_key("ctrl+w")
        wait_for("the closed window", lambda: main_window() is None)
        screen.settle()
        promise("it says so once in a login", len(notifications.shown) == 1)
        first.kill()
        first.wait()
        hanging = self.launch()
        promise("a program that was killed does not block the next", self.shows_window(hanging))
        hanging.send_signal(signal.SIGSTOP)
        following = self.launch()
        promise("a program that hangs does not block the next", wait_for("the next one's window", lambda: any(
            screen.is_of(window, following.pid) for window in screen.windows_named("Tolvera"))))
        hanging.send_signal(signal.SIGCONT)
        promise("it ends when it wakes up", hanging.wait(15) == 0)
        promise("SIGINT ends the program with status 0", end(following, signal.SIGINT) == 0)

        (self._stage.home / ".xsmstartup").touch()  # the session starts no programs
        session = self._stage.start("xsm", "-session", "default", log="session.log")
        path, host = f"/tmp/.ICE-unix/{session.pid}", socket.gethostname()
        wait_for("the session", lambda: os.path.exists(path))
        member = self.launch(SESSION_MANAGER=f"local/{host}:@{path},unix/{host}:{path}")
        self.shows_window(member)
        session.send_signal(signal.SIGTERM)
        promise("the session's end ends the program with status 0", member.wait(15) == 0)
        del self._stage.environment["SESSION_MANAGER"]
        alone = self.launch(DBUS_SESSION_BUS_ADDRESS="unix:path=/dev/null")
        promise("the program starts without a session bus", self.comes_to_front(alone))
        screen.press_key("ctrl+q")
        promise("the quit command ends it with status 0", alone.wait(15) == 0)

    def announcements(self):
        """A start stands beside the sample captions, since the second request to the service has no answer."""
        service = socket.create_server(("127.0.0.1", 0))
        self._stage.url = f"http://127.0.0.1:{service.getsockname()[1]}/livetranslate"
        heard = []

        def hear(event):
            try:
                heard.append(event.any_data if "announcement" in event.type else event.source.get_name())
            except screen.GLib.GError:
                pass  # it has gone meanwhile

        listener = screen.Atspi.EventListener.new(hear)
        for kind in ("object:announcement", "object:state-changed:showing"):
            listener.register(kind)
        self._stage.prefer(seenOnboarding=True, uiLanguage="english", TolveraPreviewOverlay=True,
                           TolveraAutoStart=True)
        self.launch()
        service.accept()[0].close()

        def has_heard():
            while screen.GLib.MainContext.default().iteration(False):
                pass
            return "Starting…" in heard

        promise("a screen reader hears a change of the status", wait_for("the announcement", has_heard))
        service.close()

    # --- The tray ---------------------------------------------------------------------------------------------

    def tray(self):
        process, program = self._stage.start_program()
        program.click("Settings", "radio button")
        program.wait("Account", "heading")
        tray = Tray()
        promise("an icon appears in a tray that starts after the program", tray.has_items(1))
        promise("the tray's menu has the program's entries",
                {"Open Tolvera", "Settings", "Quit Tolvera"} <= tray.labels().keys())
        program.click("Show in the system tray")
        promise("the setting takes it away", tray.has_items(0))
        program.click("Show in the system tray")
        promise("the setting brings it back", tray.has_items(1))
        tray.close()
        tray = Tray()
        promise("the icon comes back with a tray that was gone", tray.has_items(1))
        program.click("Translate", "radio button")
        tray.choose("Settings")
        program.wait("Account", "heading")
        promise("the tray's menu opens the settings")
        program.click("中文", "radio button")
        wait_for("the other language", lambda: "设置" in tray.labels())
        promise("the tray's menu is current")
        tray.choose("打开托维拉")
        wait_for("the form", lambda: not program.find("账号", "heading"))
        tray.choose("退出托维拉")
        promise("Quit in the tray's menu ends the program with status 0", process.wait(15) == 0)


if __name__ == "__main__":
    with Stage(sys.argv[1]) as stage:
        status = tell(stage, getattr(Windows(stage, sys.argv[2]), sys.argv[3]))
    sys.exit(status)
