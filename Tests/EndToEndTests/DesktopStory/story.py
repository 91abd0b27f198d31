"""One user's first use, from the first launch to Quit, on a real window server with the real service, sound
server, browser and tray, by pointer and keyboard alone. Prints each promise of the program that it has seen
kept; ends with 1 at the first that is not, and with 77 if something that it takes is not installed.
Usage, inside tools/stage/private-graph and tools/stage/private-desktop --tray: story.py FOLDER-WITH-THE-PROGRAMS"""

import pathlib
import re
import shutil
import subprocess
import sys
import time
import traceback

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "tools/stage"))
for tool in ("xdotool", "xev", "wmctrl", "xwininfo", "import", "chromedriver", "flite", "trayer"):
    if not shutil.which(tool):
        print(tool, "is not installed")
        sys.exit(77)
try:
    import screen
except (ImportError, ValueError):
    print("the bindings of the accessibility bus are not installed")
    sys.exit(77)
from browser import Browser
from screen import wait_for
from stage import PLAYER, Stage, main_window

# Words that the local service makes of the film's sentences.
SPANISH = {"casa", "grande", "jardín", "bello", "comprar", "pan", "leche", "lonja", "niños", "tiempo", "bueno",
           "parque", "andar", "amigos"}


class NotKept(Exception):
    pass


def promise(text, kept):
    print(f"  {'yes' if kept else 'NO '}  {text}", flush=True)
    if not kept:
        raise NotKept(text)


def is_spanish(text):
    return not SPANISH.isdisjoint(re.findall(r"\w+", text.lower()))


def captured():
    """The names of the nodes that the program's tap is linked to."""
    names, inside = set(), False
    for line in screen.output("pw-link", "-l").splitlines():
        if not line.startswith(" "):
            inside = line.startswith("tolvera-tap:")
        elif inside:
            names.add(line.split()[1].partition(":")[0])
    return sorted(names)


def sound_clients():
    return re.findall(r'application.name = "(.*)"', screen.output("pw-cli", "ls", "Client"))


class Story:
    def __init__(self, stage):
        self._stage = stage
        self._process, self._program = stage.start_program()
        self._other_log = stage.home / "other.log"

    def tell(self):
        self.greets()
        self.chooses()
        self.starts()
        self.reads_in_full_screen()
        self.handles_the_panel()
        self.stops()
        self.switches_the_language()
        self.signs_in()
        self.comes_back()
        self.quits()

    # --- Chapters -------------------------------------------------------------------------------------------

    def greets(self):
        self._program.click("Got it", "push button")
        wait_for("the greeting's end", lambda: not self._program.find("Tolvera is ready", "frame"))
        promise("the greeting goes when its button is pressed, and is not shown again",
                self._preference("seenOnboarding") is True)
        self._program.wait("1h 0m")
        promise("a new user has an account with an hour", True)

    def chooses(self):
        self._program.click("Choose an app", "combo box")
        entry = self._program.wait(lambda name: PLAYER in name)
        promise("an application that plays sound is in the list, marked as playing", "♪" in entry.get_name())
        screen.click(*screen.middle(entry))
        wait_for("the choice", lambda: self._preference("captureName") == PLAYER)
        promise("a click chooses it", True)

        self._program.click("To", "combo box")
        self._program.wait("To", "text")
        screen.type_text("spani")
        wait_for("a shorter list",
                 lambda: self._program.find("Spanish") and not self._program.find("English"))
        screen.press_key("Return")
        wait_for("the target", lambda: self._preference("target") == "es")
        promise("the target is found by typing and taken with Return", True)

    def starts(self):
        self._program.click("Start translating", "push button")
        self._program.wait("Stop", "push button")
        promise("start leads to the view of the run", True)
        self._program.wait("Translating", seconds=30)
        promise("the service has been reached, and the view says so", True)
        promise("the application's sound is tapped, and nothing else's", captured() == ["pw-play"] and
                "bystander:" in screen.output("pw-link", "-o"))
        self._main = self._window("Tolvera", lambda frame: self._program.find("Stop", under=frame))
        self._panel = wait_for("the panel", self._find_panel)
        caption = self._program.wait(is_spanish, "label", 40, under=self._main)
        promise("captions in the main window, as assistive technology reads them: "
                f"“{caption.get_name()}”", True)
        caption = self._program.wait(is_spanish, "label", 40, under=self._panel)
        promise(f"captions in the panel: “{caption.get_name()}”", True)

    def reads_in_full_screen(self):
        log = open(self._other_log, "wb")
        other = subprocess.Popen(["stdbuf", "-oL", "xev", "-name", "other program", "-event", "keyboard"],
                                 stdout=log)
        self._stage.adopt(other)
        window = wait_for("another program's window", lambda: screen.windows_named("other program"))[0]
        screen.fill_screen(window)
        self._other, self._other_window = other, window

        panel = self._panel_window()
        order = screen.stacking()
        promise("the panel stands above a full-screen window of another program",
                order.index(panel) < order.index(screen.top_level(window)))
        x, y, width, height = screen.geometry(panel)
        # In the card's lower edge, below the captions.
        wait_for("the dark card", lambda: max(screen.pixel(x + width / 2, y + height - 4)) < 90)
        promise("and is what is seen there", min(screen.pixel(x - 10, y + height / 2)) > 200)
        seen = self._captions()
        wait_for("new captions",
                 lambda: any(is_spanish(text) and text not in seen for text in self._captions()), 30)
        promise("captions go on in it", True)
        promise("the other program keeps the focus", screen.focused_window() == window)

    def handles_the_panel(self):
        panel = self._panel_window()
        x, y, width, height = screen.geometry(panel)
        screen.drag((x + width - 200, y + 14), (x + width - 320, y - 46))
        wait_for("the panel's move", lambda: screen.geometry(panel)[:2] == (x - 120, y - 60))
        promise("the panel is dragged by its background", screen.geometry(panel)[2:] == (width, height))

        self._program.wait("Larger text", "push button")
        promise("the pointer over the panel brings up its controls", True)
        sizes = []
        for _ in range(2):
            self._program.click("Larger text", "push button")
            sizes.append(wait_for("another size", lambda: self._other_font_size(sizes)))
        promise(f"the text is enlarged, to {sizes[0]:g} and then to {sizes[1]:g}", sizes[1] > sizes[0])
        screen.type_text("hello")
        wait_for("the keys", lambda: self._other_log.read_text(errors="replace").count("KeyPress event") >= 5)
        promise("through all of it the keyboard stays with the other program",
                screen.focused_window() == self._other_window)

    def stops(self):
        panel = self._panel_window()
        x, y, width, height = screen.geometry(panel)
        screen.point(x + width / 2, y + 14)
        self._program.click("Stop translating", "push button")
        wait_for("the panel's end", lambda: not screen.is_viewable(panel))
        promise("stop is in the panel too, and takes it away", True)
        self._stage.end(self._other)
        self._program.wait("Start translating", "push button")
        promise("the form is back", True)
        promise("nothing is captured any more", captured() == [])

    def switches_the_language(self):
        self._program.click("Settings", "radio button")
        self._program.click("中文", "radio button")
        self._program.wait("界面语言", "heading")
        names = self._program.names(self._main)
        promise("the whole window is in Chinese at once",
                "账号" in names and "Account" not in names and "显示" in names)

    def signs_in(self):
        self._program.click("用支付宝登录", "push button")
        opened = wait_for("the browser", lambda: self._stage.opened.exists() and
                          self._stage.opened.read_text().split())
        promise("signing in opens one page of the service in the default browser",
                len(opened) == 1 and opened[0].startswith(self._stage.url))
        with Browser(self._stage.home / "browser") as browser:
            browser.open(opened[0])
            browser.wait_for_text("h1", "登录本地账户")
            browser.click("button")
            self._program.wait("已登录", seconds=30)
        promise("confirmed there, the program knows that the user is signed in", True)

    def comes_back(self):
        window = main_window()
        screen.output("wmctrl", "-i", "-a", str(window))
        wait_for("the focus", lambda: screen.focused_window() == window)
        screen.press_key("alt+F4")
        wait_for("the window's end", lambda: main_window() is None)
        promise("the closed window leaves the program running", self._process.poll() is None)
        again, _ = self._stage.start_program()
        window = wait_for("the window", main_window)
        promise("a second launch ends with 0 and brings the first one's window back",
                again.wait(10) == 0 and screen.is_of(window, self._process.pid))

    def quits(self):
        promise("the sound server has one client of the program's", sound_clients().count("Tolvera") == 1)
        icon = wait_for("the tray's icon", self._tray_icon)
        before = set(screen.stacking())
        x, y, width, height = screen.geometry(icon)
        screen.click(x + width / 2, y + height / 2, 3)
        wait_for("the tray's menu", lambda: set(screen.stacking()) - before)
        promise("the tray's icon has a menu", True)
        screen.press_key("Up")  # the last entry
        screen.press_key("Return")
        wait_for("the program's end", lambda: self._process.poll() is not None, 10)
        promise("Quit there ends the program, with 0", self._process.returncode == 0)
        promise("it leaves nothing with the sound server", "Tolvera" not in sound_clients())

    # --- What it looks at -----------------------------------------------------------------------------------

    def _preference(self, key):
        return self._stage.preferences().get(key)

    def _other_font_size(self, sizes):
        size = self._preference("overlayFontSize")
        return None if size in sizes else size

    def _window(self, title, fits):
        frames = [frame for frame in self._program.windows() if frame.get_name() == title and fits(frame)]
        return frames[0] if frames else None

    # The window with captions and no button of the main one.
    def _find_panel(self):
        for frame in self._program.windows():
            if screen.place(frame)[3] < 460 and not self._program.find("Stop", under=frame):
                return frame
        return None

    # The panel is not the window manager's, so it is a child of the root itself.
    def _panel_window(self):
        x, y, width, height = screen.place(self._panel)
        return next(window for window in screen.stacking() if screen.geometry(window) == (x, y, width, height))

    def _captions(self):
        return [name for _, role, name in self._program.elements(self._panel) if role == "label" and name]

    def _tray_icon(self):
        trays = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "trayer"],
                               stdout=subprocess.PIPE, text=True).stdout.split()
        for tray in trays:
            for line in screen.output("xwininfo", "-id", tray, "-tree").splitlines():
                if '"tolvera"' in line:
                    return int(line.split()[0], 16)
        return None


def main(programs):
    with Stage(programs) as stage:
        stage.start_service()
        stage.start_player()
        # Another program's sound, which is none of this one's business.
        stage.start("pw-play", "-P", "{ node.name=bystander }", stage.home / "film.wav", log="bystander.log")
        stage.prefer()
        started = time.monotonic()
        story = Story(stage)
        try:
            story.tell()
        except (NotKept, TimeoutError, StopIteration, RuntimeError, subprocess.SubprocessError):
            traceback.print_exc()
            screen.picture("desktop-story.png")
            print("the screen is in", pathlib.Path("desktop-story.png").resolve(), "and holds:")
            print(story._program.dump())
            print(stage.log("tolvera.log"))
            return 1
        print(f"all kept, in {time.monotonic() - started:.0f} s")
        return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
