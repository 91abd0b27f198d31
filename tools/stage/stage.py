"""A stage for runs of the program with nothing of ours faked: a user without a past, the local service, an
application that plays a film in English, and a default browser that writes down what it is asked to open.
For scripts and tests; inside tools/stage/private-desktop and tools/stage/private-graph."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import traceback

import screen
from screen import Program, wait_for

STAGE = pathlib.Path(__file__).resolve().parent
PLAYER = "Example Player"

SENTENCES = (
    "The house is very big and the garden is beautiful.",
    "We want to buy bread and milk in the market.",
    "The children are playing in the garden behind the house.",
    "The weather is very good today.",
    "We are going to walk in the park with our friends.",
)


def data_of_user():
    """The folder with the speech models that the user has installed; the stage's own has none."""
    return pathlib.Path(os.environ.get("XDG_DATA_HOME") or pathlib.Path.home() / ".local/share")


class Stage:
    """A context: everything that it started has ended when it is left. `programs` is the folder with the
    programs."""

    def __init__(self, programs):
        self.programs = pathlib.Path(programs).resolve()
        self._processes = []

    def __enter__(self):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="tolvera-stage."))
        try:
            self._furnish()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self._processes):
            end(process)
        shutil.rmtree(self.home, ignore_errors=True)

    def _furnish(self):
        names = ("config", "data", "state", "cache")
        self.environment = dict(os.environ, HOME=str(self.home), LC_ALL="C.UTF-8",
                                QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
                                **{f"XDG_{name.upper()}_HOME": str(self.home / name) for name in names})
        for variable in ("LANGUAGE", "BROWSER", "QT_QPA_PLATFORM", "QT_SCALE_FACTOR"):
            self.environment.pop(variable, None)
        for name in (*names, "config/tolvera", "data/applications"):
            (self.home / name).mkdir()
        self.opened = self.home / "opened"
        write_down = f'printf "%s\\n" "$1" >>"{self.opened}"'
        self._install("org.tolvera.ExampleBrowser", "Example Browser", write_down,
                      "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n")
        (self.home / "config/mimeapps.list").write_text(
            "[Default Applications]\nx-scheme-handler/http=org.tolvera.ExampleBrowser.desktop\n"
            "x-scheme-handler/https=org.tolvera.ExampleBrowser.desktop\n")

    def _install(self, identifier, name, script, more=""):
        program = self.home / identifier
        program.write_text(f"#!/bin/sh\n{script}\n")
        program.chmod(0o755)
        (self.home / f"data/applications/{identifier}.desktop").write_text(
            f"[Desktop Entry]\nType=Application\nName={name}\nExec={program} %u\n{more}")
        return program

    def start(self, *command, log, **variables):
        """Starts a program that ends with the stage at the latest, with more variables in its environment."""
        with open(self.home / log, "ab") as file:
            process = subprocess.Popen([str(word) for word in command], env=self.environment | variables, stdout=file,
                                       stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        self._processes.append(process)
        return process

    def end(self, process):
        """Ends one of the stage's processes before the stage does."""
        self._processes.remove(process)
        return end(process)

    def log(self, name):
        return (self.home / name).read_text(errors="replace")

    def start_service(self, port=0, *options, models=None):
        """The local service with accounts of the stage's own, on a port of its own unless one is given. `models` is a
        folder of data with speech models; without it simple English is heard."""
        log = self.home / "service.log"
        said = len(self.log(log.name)) if log.exists() else 0
        process = self.start(self.programs / "tolvera-service", "--port", port, "--state",
                             self.home / "accounts", *options, log=log.name,
                             **({"XDG_DATA_DIRS": f"{models}:/usr/local/share:/usr/share"} if models else {}))

        def listening():
            if process.poll() is not None:
                raise RuntimeError("the local service has ended: " + self.log(log.name))
            return re.search(r"listening on 127\.0\.0\.1:(\d+)\n", self.log(log.name)[said:])

        self.port = int(wait_for("the local service", listening, 60)[1])
        self.url = f"http://127.0.0.1:{self.port}/livetranslate"
        return process

    def make_film(self, lead=0.5, rounds=8, speech=()):
        """Recordings, or else SENTENCES, each after a pause, all of them `rounds` times."""
        parts = [str(lead)]
        for file in speech or self._sentences():
            parts += [str(file), "2.5"]
        film = self.home / "film.wav"
        subprocess.run([STAGE / "sound", "join", film, *(parts[:1] + parts[1:] * rounds)], check=True)
        return film

    def _sentences(self):
        for index, sentence in enumerate(SENTENCES):
            file = self.home / f"sentence-{index}.wav"
            subprocess.run(["flite", "-voice", "rms", "-t", sentence, "-o", file], check=True)
            yield file

    def start_player(self, film=None, **length):
        """The application with a film of sound, `make_film` if none is given."""
        film = film or self.make_film(**length)
        player = self._install("org.tolvera.ExamplePlayer", PLAYER,
                               f'pw-play "{film}" &\ntrap "kill $!" TERM\nwait')
        process = self.start(player, log="player.log")
        wait_for("the player's sound", lambda: "pw-play:" in subprocess.run(
            ["pw-link", "-o"], stdout=subprocess.PIPE, text=True).stdout)
        return process

    @property
    def preferences_file(self):
        return self.home / "config/tolvera/preferences.json"

    def preferences(self):
        return json.loads(self.preferences_file.read_text())

    def prefer(self, **preferences):
        """What is in the preference store at the next start of the program, beside the service's address."""
        self.preferences_file.write_text(json.dumps({"serverURL": self.url, **preferences}))

    @contextlib.contextmanager
    def dark_desktop(self):
        """While it lasts, the desktop tells programs that the user prefers dark windows."""
        process = self.start(sys.executable, STAGE / "dark-desktop", log="desktop.log")
        wait_for("the desktop's setting", lambda: "ready" in self.log("desktop.log"))
        try:
            yield
        finally:
            self.end(process)

    def start_program(self):
        """Starts the program; gives its process and what it shows to assistive technology."""
        process = self.start(self.programs / "tolvera", log="tolvera.log")
        return process, Program(process.pid)


class NotKept(Exception):
    """A promise of the program that was not kept."""


def promise(text, kept=True):
    print(f"  {'yes' if kept else 'NO '}  {text}", flush=True)
    if not kept:
        raise NotKept(text)


def tell(stage, story):
    """Calls the story; gives 1 if a promise is not kept, after showing what is on the screen and in the logs."""
    try:
        story()
        return 0
    except (NotKept, TimeoutError, StopIteration, RuntimeError, OSError, subprocess.SubprocessError):
        traceback.print_exc()
        picture = pathlib.Path("screen-of-the-failure.png").resolve()
        if not screen.IS_WAYLAND:
            screen.picture(picture)
            print("the screen is in", picture)
        for log in sorted(stage.home.glob("*.log")):
            print(f"--- {log.name}\n{log.read_text(errors='replace')}")
        return 1


def main_window():
    """The number of the program's one ordinary window. The panel has the same title, but no window manager
    manages it."""
    titled = screen.windows_named("Tolvera|托维拉")
    return next((window for window in titled
                 if screen.top_level(window) not in (window, None)), None)


def end(process, sent=signal.SIGTERM):
    """Asks a process to end, and kills it after 10 s. Gives its exit status."""
    if process.poll() is None:
        process.send_signal(sent)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
    return process.wait()


def memory(pid):
    """Megabytes: (resident, resident with each shared page divided by its users, the process's own, which no file
    holds)."""
    with open(f"/proc/{pid}/smaps_rollup") as file:
        values = dict(line.split()[:2] for line in file if ":" in line.split()[0])
    return tuple(int(values[key]) / 1024 for key in ("Rss:", "Pss:", "Anonymous:"))
