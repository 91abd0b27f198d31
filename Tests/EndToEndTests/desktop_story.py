"""One user's first use, from the first launch to Quit, on a real window server with the real service, sound
server, browser and tray, by pointer and keyboard alone. It prints each promise of the program that was kept. It ends
with 1 at the first that was not, and with 77 if a tool is not installed. Inside tools/stage/private-graph and
tools/stage/private-desktop --tray: desktop_story.py FOLDER-WITH-THE-PROGRAMS"""

import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools/stage"))
for tool in ("import", "chromedriver", "flite"):
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
from stage import PLAYER, Stage, promise, tell

# Words that the local service makes of the film's sentences.
SPANISH = {"casa", "grande", "jardín", "bello", "comprar", "pan", "leche", "lonja", "niños", "tiempo", "bueno",
           "parque", "andar", "amigos"}


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

    def tell(self):
        self.greets()
        self.chooses()
        self.starts()
        self.stops()
        self.switches_the_language()
        with Browser(self._stage.home / "browser") as browser:
            self.signs_in(browser)
            self.buys(browser)
        self.quits()

    # --- Chapters -------------------------------------------------------------------------------------------

    def greets(self):
        self._program.click("Got it", "push button")
        wait_for("the greeting's end", lambda: not self._program.find("Tolvera is ready", "frame"))
        promise("the greeting goes when its button is pressed, and is not shown again",
                self._preference("seenOnboarding") is True)
        self._program.wait("1h 0m")
        promise("a new user has an account with an hour")

    def chooses(self):
        self._program.click("Choose an app", "combo box")
        entry = self._program.wait(lambda name: PLAYER in name)
        promise("an application that plays sound is in the list, marked as playing", "♪" in entry.get_name())
        screen.click(*screen.middle(entry))
        wait_for("the choice", lambda: self._preference("captureName") == PLAYER)
        promise("a click chooses it")

        self._program.click("To", "combo box")
        self._program.wait("To", "text")
        screen.type_text("spani")
        wait_for("a shorter list",
                 lambda: self._program.find("Spanish") and not self._program.find("English"))
        screen.press_key("Return")
        wait_for("the target", lambda: self._preference("target") == "es")
        promise("the target is found by typing and taken with Return")

    def starts(self):
        self._program.click("Start translating", "push button")
        self._program.wait("Stop", "push button")
        promise("start leads to the view of the run")
        self._program.wait("Translating", seconds=30)
        promise("the service has been reached, and the view says so")
        promise("the application's sound is tapped, and nothing else's", captured() == ["pw-play"] and
                "bystander:" in screen.output("pw-link", "-o"))
        self._main = self._window("Tolvera", lambda frame: self._program.find("Stop", under=frame))
        self._panel = wait_for("the panel", self._find_panel)
        caption = self._program.wait(is_spanish, "label", 40, under=self._main)
        promise("captions in the main window, as assistive technology reads them: "
                f"“{caption.get_name()}”")
        caption = self._program.wait(is_spanish, "label", 40, under=self._panel)
        promise(f"captions in the panel: “{caption.get_name()}”")

    def stops(self):
        panel = self._panel_window()
        x, y, width, height = screen.geometry(panel)
        screen.point(x + width / 2, y + 14)
        self._program.click("Stop translating", "push button")  # shown under the pointer
        wait_for("the panel's end", lambda: not screen.is_viewable(panel))
        promise("stop is in the panel too, and takes it away")
        self._program.wait("Start translating", "push button")
        promise("the form is back")
        promise("nothing is captured any more", captured() == [])

    def switches_the_language(self):
        self._program.click("Settings", "radio button")
        self._program.click("中文", "radio button")
        self._program.wait("界面语言", "heading")
        names = self._program.names(self._main)
        promise("the whole window is in Chinese at once",
                "账号" in names and "Account" not in names and "显示" in names)

    def signs_in(self, browser):
        self._program.click("用支付宝登录", "push button")
        self._confirm(browser, 1, "登录本地账户")
        self._program.wait("已登录", seconds=30)
        promise("signing in opens one page of the service; confirmed there, the program knows of it")

    def buys(self, browser):
        self._program.click("翻译", "radio button")
        self._program.click("购买时长")
        entry = self._program.wait(lambda name: re.search(r"小时|¥", name), "menu item")
        screen.click(*screen.middle(entry))
        self._confirm(browser, 2, "添加翻译时长")
        hours = 1 + int(re.search(r"\d+", entry.get_name())[0])
        self._program.wait(lambda name: re.match(rf"({hours}|{hours - 1}) ?(h|小时)", name), seconds=30)
        promise("a pack that is bought there is added to the balance")

    def _confirm(self, browser, count, heading):
        opened = wait_for("the browser", lambda: self._stage.opened.exists() and
                          len(self._stage.opened.read_text().split()) == count and
                          self._stage.opened.read_text().split())
        promise("the page is the service's", opened[-1].startswith(self._stage.url))
        browser.open(opened[-1])
        browser.wait_for_text("h1", heading)
        browser.click("button")

    def quits(self):
        promise("the sound server has one client of the program's", sound_clients().count("Tolvera") == 1)
        icon = wait_for("the tray's icon", self._tray_icon)
        before = set(screen.stacking())
        x, y, width, height = screen.geometry(icon)
        screen.click(x + width / 2, y + height / 2, 3)
        wait_for("the tray's menu", lambda: set(screen.stacking()) - before)
        promise("the tray's icon has a menu")
        screen.press_key("Up")  # the last entry
        screen.press_key("Return")
        wait_for("the program's end", lambda: self._process.poll() is not None, 10)
        promise("Quit there ends the program, with 0", self._process.returncode == 0)
        promise("it leaves nothing with the sound server", "Tolvera" not in sound_clients())

    # --- What it looks at -----------------------------------------------------------------------------------

    def _preference(self, key):
        return self._stage.preferences().get(key)

    def _window(self, title, fits):
        frames = [frame for frame in self._program.windows() if frame.get_name() == title and fits(frame)]
        return frames[0] if frames else None

    # The window with captions and no button of the main one.
    def _find_panel(self):
        for frame in self._program.windows():
            if screen.place(frame)[3] < 460 and not self._program.find("Stop", under=frame):
                return frame
        return None

    def _panel_window(self):
        return screen.panel_of(self._process.pid)

    def dump(self):
        return self._program.dump()

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
        # Another program's sound, which was not chosen.
        stage.start("pw-play", "-P", "{ node.name=bystander }", stage.home / "film.wav", log="bystander.log")
        stage.prefer()
        story = Story(stage)
        status = tell(stage, story.tell)
        if status:
            print(story.dump())
        return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
