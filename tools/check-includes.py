#!/usr/bin/env python3
"""Fails when a file includes something of a layer that it must not know: check-includes.py FILE..."""

import re
import sys

WINDOWS = r"Qt|Q[A-Z]"
TECHNOLOGIES = r"pipewire|spa/|boost/beast|openssl|unicode/|gio/|sqlite3|soxr"

# Layer -> the layers of the project that it may include besides itself, and the foreign headers that it must not.
# The longest name that a path begins with is its layer; main files are a layer of their own.
LAYERS = {
    "Async": ((), f"{WINDOWS}|{TECHNOLOGIES}"),
    "Platform": (("Async",), f"{WINDOWS}|{TECHNOLOGIES}"),
    # Names of hosts outside ASCII are encoded by a table of the Unicode library.
    "Platform/URL.cpp": (("Platform",), f"{WINDOWS}|{TECHNOLOGIES.replace('unicode/|', '')}"),
    "Platform/Linux/Network": (("Async", "Platform"), f"{WINDOWS}|pipewire|gio/"),
    "Platform/Linux/Sound/Graph": (("Async", "Platform"), f"{WINDOWS}|boost/beast|openssl|gio/|soxr"),
    "Platform/Linux/Sound": (("Async", "Platform", "Platform/Linux/Sound/Graph"), f"{WINDOWS}|boost/beast|openssl|gio/"),
    "Platform/Linux/Desktop": (("Async", "Platform"), f"{WINDOWS}|pipewire|boost/beast"),
    "Platform/Linux": (
        ("Async", "Platform", "Platform/Linux/Network", "Platform/Linux/Sound", "Platform/Linux/Desktop"),
        WINDOWS,
    ),
    "TolveraCore": (("Async", "Platform"), f"{WINDOWS}|{TECHNOLOGIES}"),
    "Tolvera/Model": (("Async", "Platform", "TolveraCore"), rf"{TECHNOLOGIES}|QtQuick|QQuick|QDBus|QtWidgets"),
    "Tolvera/Desktop": (("Async",), r"pipewire|boost/beast|openssl|QtQml"),
    "Tolvera/Views": (("Async", "Platform", "TolveraCore", "Tolvera/Model", "Tolvera/Desktop"), TECHNOLOGIES),
    "Tolvera/App": (
        ("Async", "Platform", "TolveraCore", "Tolvera/Model", "Tolvera/Views", "Tolvera/Desktop"),
        f"{TECHNOLOGIES}|xcb",
    ),
    "Tolvera": (("Async", "Platform", "Platform/Linux", "Tolvera/Model", "Tolvera/Desktop", "Tolvera/App"), TECHNOLOGIES),
    "Terminal": (("Async", "Platform", "TolveraCore", "Tolvera/Model"), TECHNOLOGIES),
    "Terminal/main.cpp": (
        ("Async", "Platform", "Platform/Linux", "TolveraCore", "Tolvera/Model", "Terminal"),
        TECHNOLOGIES,
    ),
    "TolveraService/Accounts": (("Async",), f"{WINDOWS}|pipewire|boost/beast|soxr"),
    "TolveraService/Engine": (("Async", "TolveraService/Models", "TolveraService/Transfer"), f"{WINDOWS}|pipewire|sqlite3"),
    "TolveraService/Transfer": ((), f"{WINDOWS}|pipewire|boost/beast|sqlite3"),
    "TolveraService/Models": (("TolveraService/Transfer",), f"{WINDOWS}|pipewire|boost/beast|sqlite3"),
    "TolveraService/Stream": (
        ("Async", "TolveraService", "TolveraService/Accounts", "TolveraService/Engine"),
        f"{WINDOWS}|pipewire|sqlite3|soxr",
    ),
    "TolveraService/Http": (
        ("Async", "TolveraService", "TolveraService/Accounts", "TolveraService/Stream"),
        f"{WINDOWS}|pipewire|sqlite3|soxr",
    ),
    "TolveraService": (
        ("Async", *(f"TolveraService/{room}" for room in ("Accounts", "Engine", "Stream", "Http", "Models", "Transfer"))),
        f"{WINDOWS}|pipewire|sqlite3|soxr",
    ),
}
INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]')


def layer_of(path):
    return max((layer for layer in LAYERS if path == layer or path.startswith(layer + "/")), key=len, default=None)


def check(path):
    layer = layer_of(path.removeprefix("Sources/")) if path.startswith("Sources/") else None
    if layer is None:
        return []
    allowed, foreign = LAYERS[layer]
    faults = []
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            kind, include = match.groups()
            if kind == "<":
                if re.match(foreign, include):
                    faults.append(f"{path}:{number}: {layer} must not include <{include}>")
                continue
            target = layer_of(include)
            if target is None and "/" in include:
                faults.append(f"{path}:{number}: {include} is in no layer of the project")
            elif target is not None and target != layer and target not in allowed:
                faults.append(f"{path}:{number}: {layer} must not include {include}")
    return faults


def main(paths):
    faults = [fault for path in paths for fault in check(path)]
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
