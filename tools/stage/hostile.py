#!/usr/bin/env python3
"""Plays a translation service that is broken or means harm, against the terminal program and the program offscreen:
hostile.py FOLDER-WITH-THE-PROGRAMS [SCENARIO...], inside tools/stage/private-graph. Each scenario takes some seconds.
It prints what each cost, and ends with 1 if a promise is not kept."""

import base64
import contextlib
import hashlib
import json
import math
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

from gi.repository import Gio, GLib

# MB, at most. A sanitizer keeps what was freed, and shadows what is used: TOLVERA_MEMORY_LIMIT=inf for its programs.
MEMORY = float(os.environ.get("TOLVERA_MEMORY_LIMIT", "150"))
GROWTH = 20 if math.isfinite(MEMORY) else MEMORY
ANSWER = float(os.environ.get("TOLVERA_ANSWER_LIMIT", "0.1"))  # s that a call to the program may take
READY = {"type": "ready", "secondsLeft": 3000}
PACK = {"id": "p", "hours": 1, "cents": 1, "fen": 1}
ACCOUNT = {"secondsLeft": 3000, "secondsUsed": 0, "dubMultiplier": 4, "voices": [], "paymentMethods": [],
           "loginMethods": [], "signedIn": False, "packs": [PACK]}
CHUNKED = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"


def frame(content):
    """A frame of a web socket; the content is a JSON value or bytes."""
    data = content if isinstance(content, bytes) else json.dumps(content).encode()
    size, kind = len(data), 0x82 if isinstance(content, bytes) else 0x81
    if size < 126:
        return bytes((kind, size)) + data
    return (struct.pack("!BBH", kind, 126, size) if size < 65536 else struct.pack("!BBQ", kind, 127, size)) + data


def caption(text, final=True):
    return {"type": "tr", "text": text, "final": final}


class Service:
    """Sends frames to a run, `once` and then `again` without end. A reply replaces the usual one to its path; None is
    silence."""

    def __init__(self, once=(), again=(), **replies):
        self.frames = [b"".join(map(frame, contents)) for contents in (once, again)]
        self.replies = {"me": json.dumps(ACCOUNT), "signup": '{"token":"secret","secondsLeft":3000}', **replies}
        self._socket = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self._socket.getsockname()[1]}/livetranslate"
        self.sent = 0
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            threading.Thread(target=self._serve, args=self._socket.accept()[:1], daemon=True).start()

    def _serve(self, peer):
        with peer, contextlib.suppress(OSError):
            request = peer.recv(65536).decode("latin-1")
            path = request.split()[1].partition("?")[0].rsplit("/", 1)[1]
            if path in self.replies:
                reply = self.replies[path]
                if reply is None:
                    return time.sleep(60)
                if isinstance(reply, str):
                    reply = (f"HTTP/1.1 200 OK\r\nContent-Length: {len(reply)}\r\n\r\n{reply}".encode(),)
                return self._send_all(peer, *reply)
            threading.Thread(target=self._drain, args=(peer,), daemon=True).start()
            key = next(line[18:].strip() for line in request.split("\r\n") if line.startswith("Sec-WebSocket-Key"))
            accept = base64.b64encode(hashlib.sha1((key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11").encode()).digest())
            peer.sendall(b"HTTP/1.1 101 Go\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: "
                         + accept + b"\r\n\r\n" + frame(READY))
            return self._send_all(peer, *self.frames)

    def _send_all(self, peer, once, again=b""):
        peer.sendall(once)
        many = again * max(1, 65536 // max(1, len(again)))
        while again:
            peer.sendall(many)
            self.sent += len(many)

    @staticmethod
    def _drain(peer):
        with contextlib.suppress(OSError):
            while peer.recv(65536):
                pass


class Run:
    """One of the programs, with preferences of its own that lead it to the service."""

    def __init__(self, program, service, **preferences):
        self._folder = tempfile.TemporaryDirectory()
        self.home = pathlib.Path(self._folder.name)
        (self.home / "tolvera").mkdir()
        (self.home / "tolvera/preferences.json").write_text(json.dumps(
            {"serverURL": service.url, "uiLanguage": "english", "seenOnboarding": True, "TolveraVerbose": True,
             "TolveraAutoStart": program.name == "tolvera", **preferences}))
        environment = {**os.environ, "HOME": str(self.home), "XDG_CONFIG_HOME": str(self.home),
                       "XDG_DATA_HOME": str(self.home), "QT_QPA_PLATFORM": "offscreen", "TOLVERA_LOG": "network"}
        self._output = open(self.home / "output", "w+b")
        self.process = subprocess.Popen([program], env=environment, stdout=self._output, stderr=subprocess.STDOUT)
        self.begin = time.monotonic()
        self.slowest = 0

    def said(self):
        return (self.home / "output").read_bytes().decode(errors="replace")

    def waits_for(self, words, limit=20):
        deadline = time.monotonic() + limit
        while words not in self.said() and self.process.poll() is None and time.monotonic() < deadline:
            time.sleep(0.02)
        return words in self.said()

    def memory(self):
        """The most that it has used so far, in MB."""
        lines = pathlib.Path(f"/proc/{self.process.pid}/status").read_text().splitlines()
        return next((int(line.split()[1]) / 1024 for line in lines if line.startswith("VmHWM")), 0)

    def ask(self, seconds, every=0.05):
        """Calls the program on the bus for so long, and notes the slowest answer."""
        bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        arguments = GLib.Variant("(sava{sv})", ("nothing", [], {}))
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            begin = time.monotonic()
            bus.call_sync("org.tolvera.Tolvera", "/org/tolvera/Tolvera", "org.freedesktop.Application",
                          "ActivateAction", arguments, None, Gio.DBusCallFlags.NO_AUTO_START, 60_000)
            self.slowest = max(self.slowest, time.monotonic() - begin)
            time.sleep(every)

    def end(self, sent=signal.SIGINT, limit=20):
        """Its exit status, and the seconds that its end took."""
        begin = time.monotonic()
        self.process.send_signal(sent)
        try:
            return self.process.wait(limit), time.monotonic() - begin
        except subprocess.TimeoutExpired:
            self.process.kill()
            return self.process.wait(), time.monotonic() - begin

    def end_anyhow(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()


# What is sent without end after "ready", the program, its preferences, and words that its output then holds.
FLOODS = {
    "long-captions": ([caption(letter * 1_000_000) for letter in "ab"], "terminal", {}, "a text of more than 64 KiB"),
    "huge-messages": ([bytes(5 << 20)], "terminal", {}, "a message of more than 4096 KiB"),
    "dub": ([bytes(48_000)], "terminal", {"dub": True, "target": "en", "source": "es"}, "live"),
    "captions": ([caption(f"Caption {number}.") for number in range(1000)], "window", {}, "live"),
    "separators": ([caption("\u2028" * 10_000 + letter, False) for letter in "ab"], "window", {}, "live"),
}
# Replies to the read of the account.
REPLIES = {
    "chunk-extensions": (CHUNKED + b"1;", b"a"),
    "many-chunks": (CHUNKED, b"1;aaaaaaaa\r\n \r\n"),
    "chunk-sizes": (CHUNKED, b"0"),
    "trailers": (CHUNKED + b"0\r\nA: ", b"a"),
    "headers": (b"HTTP/1.1 200 OK\r\n", b"A: b\r\n"),
    "many-packs": json.dumps(ACCOUNT | {"packs": [PACK] * 100_000}),
}


def flood(name, run_of):
    frames, program, preferences, words = FLOODS[name]
    run = run_of(program, Service(again=frames), **preferences)
    yield words, run.waits_for(words)
    time.sleep(1)  # what a start costs is not the service's doing
    before = run.memory()
    run.ask(3) if program == "window" else time.sleep(3)
    yield f"the memory stays flat, {before:.0f} and {run.memory():.0f} MB", run.memory() < before + GROWTH
    yield f"less than {MEMORY:.0f} MB, {run.memory():.0f}", run.memory() < MEMORY
    if program == "window":
        yield f"a call is answered at once, in {run.slowest * 1000:.0f} ms at most", run.slowest < ANSWER
        status, seconds = run.end(signal.SIGTERM)
        yield f"ends politely, after {seconds:.1f} s", status == 0 and seconds < 10


def reply(name, run_of):
    run = run_of("terminal", Service(me=REPLIES[name]))
    yield "the reply is refused in words", run.waits_for("is over 256 KiB")
    yield f"less than {MEMORY:.0f} MB, {run.memory():.0f}", run.memory() < MEMORY


def token(_, run_of):
    for text in ("a\r\nX: 1", "a\0", "a" * 9000):
        run = run_of("terminal", Service(signup=json.dumps({"token": text, "secondsLeft": 1})))
        yield "a token that no header carries is not kept", \
            run.waits_for("phase: failed") and not list(run.home.glob("Tolvera/token-*"))
        run.end_anyhow()


def escapes(_, run_of):
    bad = "\x1b]0;title\x07 \u202eback \x9b31m"
    run = run_of("terminal", Service([caption(bad), {"type": "error", "message": bad}]))
    kept = run.waits_for("phase: failed(") and run.waits_for("finished: \ufffd]0;title\ufffd \ufffdback \ufffd31m")
    printed = "".join(line for line in run.said().splitlines() if not line.startswith("[tolvera]"))
    yield "no escape sequence reaches a terminal", kept and not set(bad[0] + "\x07\u202e\x9b") & set(printed)


def goodbye(_, run_of):
    run = run_of("terminal", Service(ws=None))
    run.waits_for("phase: connecting")
    time.sleep(0.5)
    status, seconds = run.end()
    yield f"Ctrl-C ends a run that never began, after {seconds:.1f} s", status == 0 and seconds < 2
    run = run_of("terminal", Service(me=None))
    time.sleep(1)
    status, seconds = run.end()
    yield f"Ctrl-C ends a hanging request, after {seconds:.1f} s", status == 0 and seconds < 2


SCENARIOS = {**dict.fromkeys(FLOODS, flood), **dict.fromkeys(REPLIES, reply), "token": token, "escapes": escapes,
             "goodbye": goodbye}


def main(programs, names):
    broken = 0
    for name in names or SCENARIOS:
        runs = []

        def run_of(program, service, **preferences):
            runs.append(Run(programs / {"terminal": "tolvera-terminal", "window": "tolvera"}[program], service,
                            **preferences))
            return runs[-1]

        try:
            kept = True
            for promise, kept in SCENARIOS[name](name, run_of):
                print(f"{'kept:  ' if kept else 'BROKEN:'} {name}: {promise}", flush=True)
                broken += not kept
                if not kept:
                    print("\n".join(line[:300] for line in runs[-1].said().splitlines()[-20:]))
        finally:
            for run in runs:
                run.end_anyhow()
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]))
