"""Starts the terminal program where no service runs, and where another user has taken the service's port:
first_contact.py FOLDER-WITH-THE-PROGRAMS, inside tools/stage/private-graph. In a network of its own, so that it meets
no service of this machine. Ends with 1 at the first promise that is not kept."""

import os
import pathlib
import select
import shutil
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
        user = [] if os.getuid() == 0 else ["--map-root-user"]
        environment = {**os.environ, "TOLVERA_OWN_NETWORK": "mapped" if user else "real"}
        os.execvpe("unshare", ["unshare", *user, "--net", "--mount", "/usr/bin/python3", *sys.argv], environment)
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


def run_by_socket(programs):
    """Plays a service manager, which starts the service at the first connection to its socket. Returns what the
    terminal said, whether the service outlived it, and what the manager was told."""
    place = pathlib.Path(os.environ["XDG_RUNTIME_DIR"], "tolvera")
    place.mkdir(mode=0o700, exist_ok=True)
    kept, told = socket.socket(socket.AF_UNIX), socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    kept.bind(str(place / "service.sock"))
    kept.listen()
    told.bind(str(place / "notify"))
    told.settimeout(5)
    services = []

    def start_at_first_connection():
        select.select([kept], [], [])
        command = f'LISTEN_FDS=1 LISTEN_PID=$$ exec "$0" --engine pocketsphinx 3<&{kept.fileno()}'
        environment = {**os.environ, "NOTIFY_SOCKET": str(place / "notify"), "XDG_STATE_HOME": tempfile.mkdtemp()}
        services.append(subprocess.Popen(["sh", "-c", command, programs / "tolvera-service"], env=environment,
                                         pass_fds=[kept.fileno()]))

    threading.Thread(target=start_at_first_connection, daemon=True).start()
    said = run_terminal(programs)[0]
    alive = services[0].poll() is None
    services[0].terminate()
    services[0].wait(10)
    (place / "service.sock").unlink()
    return said, alive, [told.recv(1000).decode() for _ in range(4)]


def check_beside_root(programs, options):
    """Whether a user finds a service while one of root runs with these options, and whether it had to be started."""
    folder = pathlib.Path("/run")  # where root tells its place; here one of this test's, which ends with it
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", folder], check=True)
    home = folder / "home"
    home.mkdir()
    os.chown(home, NOBODY, NOBODY)
    for name in "tolvera-service", "tolvera-terminal":  # the user may not see the folder with the programs
        shutil.copy(programs / name, folder)
    service = subprocess.Popen([folder / "tolvera-service", "--engine", "pocketsphinx", *options], text=True,
                               stdout=subprocess.PIPE, env={**os.environ, "XDG_STATE_HOME": folder / "state"})
    service.stdout.readline()
    environment = {"PATH": os.environ["PATH"], "HOME": home, "XDG_RUNTIME_DIR": home, "TOLVERA_LOG": "service",
                   "ASAN_OPTIONS": "detect_leaks=0"}  # without a message bus a library of the sound server leaks
    check = subprocess.run([folder / "tolvera-terminal", "--check"], user=NOBODY, group=NOBODY, extra_groups=[],
                           env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    service.terminate()
    service.wait(10)
    return "ok       service" in check.stdout, "started as process" in check.stdout


def main(programs):
    enter_own_network()
    said, alive, told = run_by_socket(programs)
    expect("the manager's socket starts the service", "phase: live" in said and "started as process" not in said)
    expect("a service of the manager outlives the program", alive)
    expect("the manager learns of the start and of runs",
           "READY=1" in told and [line[:12] for line in told if "STATUS" in line][:2] == ["STATUS=0 run", "STATUS=1 run"])
    said, port, mode, left = run_terminal(programs)
    expect("a service that does not run is started", "phase: live" in said and "ended with 0" in said)
    expect("its place is told to this user alone", port == PORT and mode == 0o600)
    expect("it ends with the program that started it", not left)
    if os.getuid() != 0 or os.environ["TOLVERA_OWN_NETWORK"] == "mapped":
        print("skipped: only the superuser can stand in for another user")
        return
    found, started = check_beside_root(programs, [])
    expect("a user beside root's own service gets one too", found and started)
    found, started = check_beside_root(programs, ["--all-users"])
    expect("root's service for all users serves a user", found and not started)
    stranger = socket.create_server(("127.0.0.1", PORT))
    os.fchown(stranger.fileno(), NOBODY, NOBODY)
    heard = []
    threading.Thread(target=lambda: heard.append(stranger.accept()), daemon=True).start()
    said, port, _, _ = run_terminal(programs)
    expect("another user at the usual port hears nothing", "phase: live" in said and port == PORT + 1 and not heard)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
