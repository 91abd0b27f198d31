"""A first run without a speech model: offer.py TOLVERA-SERVICE MODELS.JSON, on a session bus of its own. The desktop is
a stand-in, the weights are real and come from a publisher on loopback. Ends with 77 where they are not installed."""

import http.client
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools/stage"))
import models
from models import Publisher, expect
from notifications import Notifications

class Service:
    def __init__(self, environment, log):
        self.log = log
        self._process = subprocess.Popen([sys.argv[1], "--state", environment["XDG_DATA_HOME"] + "/state"],
                                         env=environment, stdout=subprocess.PIPE, stderr=log.open("w"), text=True)
        self._port = int(self._process.stdout.readline().rsplit(":")[-1])

    def run(self):
        """The first frame of a run that hears French, which Whisper alone understands."""
        plain = http.client.HTTPConnection("127.0.0.1", self._port)
        plain.request("POST", "/livetranslate/api/signup")
        token = json.load(plain.getresponse())["token"]
        stream = socket.create_connection(("127.0.0.1", self._port), 30)
        stream.sendall(f"GET /livetranslate/ws?token={token}&source=fr&target=en HTTP/1.1\r\nHost: 127.0.0.1:{self._port}\r\n"
                       "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                       "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n".encode())
        text = b""
        while b'"type"' not in text and (more := stream.recv(4096)):
            text += more
        return text

    def stop(self):
        self._process.terminate()
        return self._process.wait(20)


def main():
    mine = pathlib.Path(os.environ.get("XDG_DATA_HOME") or pathlib.Path.home() / ".local/share") / "tolvera/models"
    catalogue = json.loads(pathlib.Path(sys.argv[2]).read_text())
    weights, gate = catalogue["models"][0], catalogue["models"][-1]
    if not (mine / weights["file"]).exists():
        sys.exit(77)
    models.CONTENTS = (mine / weights["file"]).read_bytes()
    server = models.http.server.ThreadingHTTPServer(("127.0.0.1", 0), Publisher)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    weights["address"] = f"http://127.0.0.1:{server.server_port}/cut/model"

    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        system = folder / "system/tolvera/models"
        system.mkdir(parents=True)
        (system.parent / "models.json").write_text(json.dumps(catalogue))
        (system / gate["file"]).symlink_to(mine / gate["file"])
        (folder / "runtime").mkdir(mode=0o700)
        environment = {**os.environ, "XDG_DATA_HOME": str(folder / "home"), "XDG_DATA_DIRS": str(folder / "system"),
                       "XDG_RUNTIME_DIR": str(folder / "runtime"), "LC_ALL": "C.UTF-8"}
        log = folder / "log"

        service = Service({**environment, "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere"}, log)
        refused = service.run()
        service.stop()
        expect("without a desktop the command is printed", b"cannot hear French" in refused
               and log.read_text().count("tolvera-service models install base-q8_0") == 1)

        desktop = Notifications()
        service = Service(environment, log)
        service.run()
        desktop.until(lambda: desktop.shown)
        service.run()
        title, body, actions, _ = desktop.shown[0]
        expect("the first run alone tells what is missing", len(desktop.shown) == 1 and "missing" in title
               and "82 MB, under the MIT License" in body and actions[1] == "Install" and not Publisher.ranges)
        expect("an offer ends with its service", service.stop() == 0 and desktop.taken_away == 1)

        service = Service({**environment, "LC_ALL": "zh_CN.UTF-8"}, log)
        service.run()
        expect("the next service offers it again, in Chinese",
               desktop.until(lambda: len(desktop.shown) == 2) and desktop.shown[1][2][1] == "安装")
        desktop.press()
        expect("a download that fails is told, with the button",
               desktop.until(lambda: "未能安装" in desktop.shown[-1][0]) and len(desktop.shown[-1][2]) == 2)
        desktop.press()
        expect("it goes on, tells how far it is, and is ready", desktop.until(lambda: desktop.shown[-1][0] == "已就绪")
               and any(hints.get("value", 0) > 40 for *_, hints in desktop.shown))
        expect("the next run is heard by the new engine", b'"ready"' in service.run())
        service.stop()


if __name__ == "__main__":
    main()
