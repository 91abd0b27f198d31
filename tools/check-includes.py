#!/usr/bin/env python3
"""Fails when a file includes something from a layer it must not know."""

import re
import sys

# Layer -> what it may include of the project, and which third-party headers it must not.
LAYERS = {
    "Sources/Async": ({"Async"}, r"Qt|Q[A-Z]|pipewire|spa/|boost/beast|openssl"),
    "Sources/Platform/Linux": ({"Async", "Platform"}, r"Qt|Q[A-Z]"),
    "Sources/Platform": ({"Async", "Platform"}, r"Qt|Q[A-Z]|pipewire|spa/|boost/beast|openssl|unicode/|gio/"),
    "Sources/TolveraCore": (
        {"Async", "Platform", "TolveraCore"},
        r"Qt|Q[A-Z]|pipewire|spa/|boost/beast|openssl|unicode/|gio/",
    ),
    "Sources/TolveraService": ({"Async", "TolveraService"}, r"Qt|Q[A-Z]|pipewire"),
    "Sources/Tolvera": (
        {"Async", "Platform", "TolveraCore", "Tolvera"},
        r"pipewire|spa/|boost/beast|openssl|unicode/|gio/",
    ),
    "Sources/Terminal": (
        {"Async", "Platform", "Platform/Linux", "TolveraCore", "Tolvera", "Terminal"},
        r"pipewire|spa/|boost/beast|openssl",
    ),
}
# The adapters are named by the programs' main files alone.
MAINS = {"Sources/Tolvera/main.cpp", "Sources/Terminal/main.cpp"}
INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]')


def layer_of(path):
    return max((layer for layer in LAYERS if path.startswith(layer + "/")), key=len, default=None)


def project_layer(include):
    if include.startswith("Platform/Linux/"):
        return "Platform/Linux"
    head = include.split("/")[0]
    return head if f"Sources/{head}" in LAYERS else None


def check(path):
    layer = layer_of(path)
    if layer is None:
        return []
    allowed, forbidden = LAYERS[layer]
    if path in MAINS or path.startswith("Sources/Platform/Linux/"):
        allowed = allowed | {"Platform/Linux"}
    elif layer != "Sources/Terminal":
        allowed = allowed - {"Platform/Linux"}
    faults = []
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            kind, include = match.groups()
            target = project_layer(include)
            if kind == '"' and target is not None and target not in allowed:
                faults.append(f"{path}:{number}: {layer} must not include {include}")
            if kind == '"' and target is None and "/" in include:
                faults.append(f"{path}:{number}: {include} is in no layer of the project")
            if kind == "<" and re.match(forbidden, include):
                faults.append(f"{path}:{number}: {layer} must not include <{include}>")
    return faults


def main(paths):
    faults = [fault for path in paths for fault in check(path)]
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
