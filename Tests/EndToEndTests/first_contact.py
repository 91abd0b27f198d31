"""Starts the terminal program where no service runs, and where another user has taken the service's port:
first_contact.py FOLDER-WITH-THE-PROGRAMS, inside tools/stage/private-graph. In a network of its own, so that it meets
no service of this machine. Ends with 1 at the first promise that is not kept."""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

PORT = 18790
NOBODY = 65534


def expect(promise, kept):
    print(("kept:   " if kept else "BROKEN: ") + promise, flush=True)
    if not kept:
        sys.exit(1)


def enter_own_network():
    if not os.environ.get("TOLVERA_OWN_NETWORK"):
        environment = {**os.environ, "TOLVERA_OWN_NETWORK": "1"}
        user = [] if os.getuid() == 0 else ["--map-root-user"]
        os.execvpe("unshare", ["unshare", *user, "--net", "/usr/bin/python3", *sys.argv], environment)
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)


def run_terminal(programs):
    """What it said until it was live or 30 s had gone, and what is left of its service."""
    home = tempfile.mkdtemp()
    environment = {key: value for key, value in os.environ.items() if key not in ("XDG_CONFIG_HOME", "XDG_DATA_HOME")}
    environment |= {"HOME": home, "XDG_STATE_HOME": home + "/state", "TOLVERA_LOG": "service"}
    terminal = subprocess.Popen([programs / "tolvera-terminal"], env=environment, text=True, bufsize=1,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    threading.Timer(30, terminal.kill).start()
    said = []
    for line in terminal.stdout:
        said.append(line.strip())
        if line.startswith("phase: live"):
            break
    place = pathlib.Path(os.environ["XDG_RUNTIME_DIR"], "tolvera/service")
    port = int(place.read_text()) if place.exists() else None
    mode = place.stat().st_mode & 0o777 if port else None
    terminal.send_signal(signal.SIGTERM)
    said.append(f"ended with {terminal.wait(20)}")
    deadline = time.monotonic() + 5
    while place.exists() and time.monotonic() < deadline:
        time.sleep(0.05)
    return "\n".join(said), port, mode, place.exists()


def main(programs):
    enter_own_network()
    said, port, mode, left = run_terminal(programs)
    expect("a service that does not run is started", "phase: live" in said and "ended with 0" in said)
    expect("its place is told to this user alone", port == PORT and mode == 0o600)
    expect("it ends with the program that started it", not left)
    stranger = socket.create_server(("127.0.0.1", PORT))
    try:
        os.fchown(stranger.fileno(), NOBODY, NOBODY)
    except OSError:
        print("skipped: only the superuser can stand in for another user")
        return
    heard = []
    threading.Thread(target=lambda: heard.append(stranger.accept()), daemon=True).start()
    said, port, _, _ = run_terminal(programs)
    expect("another user at the usual port hears nothing", "phase: live" in said and port == PORT + 1 and not heard)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
