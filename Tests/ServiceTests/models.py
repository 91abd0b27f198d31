"""Installs a model from a small publisher on loopback, well behaved and not: models.py TOLVERA-SERVICE. Ends with 1
at the first promise that is not kept."""

import hashlib
import http.server
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import threading
import time

CONTENTS = os.urandom(600_000)


class Publisher(http.server.BaseHTTPRequestHandler):
    """How it behaves is the first word of the path."""

    protocol_version = "HTTP/1.1"
    ranges = []

    def do_GET(self):
        behaviour = self.path.split("/")[1]
        wanted = self.headers.get("Range")
        self.ranges.append(wanted)
        places = {"redirect": f"http://127.0.0.1:{self.server.server_port}", "away": "http://models.invalid"}
        if behaviour in places:
            return self.answer(302, b"", Location=places[behaviour] + "/good/model")
        if behaviour == "missing":
            return self.answer(404, b"not here")
        start = 0
        if wanted and behaviour != "norange" and self.headers.get("If-Range") == '"one"':
            start = int(wanted.removeprefix("bytes=").removesuffix("-"))
        body = {"wrong": bytes(len(CONTENTS)), "long": CONTENTS + b"more"}.get(behaviour, CONTENTS)[start:]
        self.close_connection = behaviour in ("cut", "norange", "slow") and len(self.ranges) == 1
        self.answer(206 if start else 200, body, len(body) // 2 if self.close_connection else None, ETag='"one"')
        if self.close_connection and behaviour == "slow":
            time.sleep(5)

    def answer(self, status, body, cut=None, **headers):
        self.send_response(status)
        for name, value in {"Content-Length": len(body), **headers}.items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body[:cut])

    def log_message(self, *_):
        pass


def expect(promise, kept):
    print(("kept:   " if kept else "BROKEN: ") + promise, flush=True)
    if not kept:
        sys.exit(1)


class Case:
    """A user without a model, and a catalogue with one that is published by `behaviour`."""

    def __init__(self, server, behaviour):
        self._folder = tempfile.TemporaryDirectory()
        self.home = pathlib.Path(self._folder.name, "home")
        self.model = self.home / "tolvera/models/m.bin"
        system = pathlib.Path(self._folder.name, "system/tolvera")
        system.mkdir(parents=True)
        row = dict.fromkeys(("name", "about", "memory", "licence"), "m") | {
            "file": "m.bin", "size": len(CONTENTS), "sha256": hashlib.sha256(CONTENTS).hexdigest(),
            "address": f"http://127.0.0.1:{server.server_port}/{behaviour}/model"}
        (system / "models.json").write_text(json.dumps({"models": [row], "licences": {"m": "text"}}))
        self._environment = {**os.environ, "XDG_DATA_HOME": str(self.home), "XDG_DATA_DIRS": str(system.parent)}
        Publisher.ranges = []

    def start(self, *words, before=()):
        return subprocess.Popen([*before, sys.argv[1], "models", *words], env=self._environment, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def run(self, *words, **options):
        process = self.start(*words, **options)
        text = process.communicate(timeout=30)[0]
        return process.returncode, text

    def is_whole(self):
        return self.model.exists() and self.model.read_bytes() == CONTENTS and len(list(self.model.parent.iterdir())) == 2


def main():
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Publisher)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    for behaviour, status, words in (("good", 0, "is installed"), ("redirect", 0, "is installed"),
                                     ("wrong", 1, "not the model as published"), ("long", 1, "longer than the model"),
                                     ("missing", 1, "404"), ("away", 1, "https alone")):
        case = Case(server, behaviour)
        code, text = case.run("install", "m")
        left = case.is_whole() if status == 0 else not case.model.exists()
        expect(f"a publisher that is {behaviour} ends with {status}", code == status and words in text and left)
    for behaviour in ("cut", "norange"):
        case = Case(server, behaviour)
        codes = [case.run("install", "m")[0] for _ in range(2)]
        asked = Publisher.ranges[1] == f"bytes={len(CONTENTS) // 2}-"
        expect(f"a download that was cut goes on ({behaviour})", codes == [1, 0] and asked and case.is_whole())

    case = Case(server, "slow")
    process = case.start("install", "m")
    partial = case.model.with_name("m.bin.part")
    deadline = time.monotonic() + 20
    while not (partial.exists() and partial.stat().st_size) and time.monotonic() < deadline:
        time.sleep(0.02)
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=20)
    kept = partial.stat().st_size
    expect("Ctrl-C keeps what has come", process.returncode == 130 and kept > 0 and case.run("install", "m")[0] == 0
           and Publisher.ranges[1] == f"bytes={kept}-" and case.is_whole())

    case.model.write_bytes(CONTENTS[::-1])
    code, text = case.run("verify")
    expect("a damaged model is told with its cure", code == 1 and "models install m" in text)
    source = case.home / "file"
    source.write_bytes(CONTENTS)
    expect("a file mends it", case.run("install", "m", "--from", str(source))[0] == 0 and case.run("verify", "m")[0] == 0)
    expect("remove leaves nothing", case.run("remove", "m")[0] == 0 and case.run("remove", "m")[0] == 1
           and all(path.suffix == ".tag" for path in case.model.parent.iterdir()))

    small = Case(server, "good")
    small.home.mkdir()
    mount = f"mount -t tmpfs -o size=1000k none {small.home} && exec \"$@\""
    code, text = small.run("install", "m", before=("unshare", "--map-root-user", "--mount", "sh", "-c", mount, "sh"))
    if "unshare" in text or "mount" in text:
        print("skipped: this machine makes no file system for a test")
        return
    expect("a disk without twice the room is refused", code == 1 and "no room" in text)


if __name__ == "__main__":
    main()
