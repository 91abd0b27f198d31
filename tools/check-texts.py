#!/usr/bin/env python3
"""Fails when a file is too long, a comment speaks in riddles, a test's name is too long, or the tests outweigh
the code: check-texts.py, in the project's folder."""

import pathlib
import re
import subprocess
import sys

LINES_OF_A_FILE = 400  # under Sources
LETTERS_OF_A_NAME = 40
# Lines under Tests to lines under Sources. A third is meant.
SHARE_OF_TESTS = 0.36
RIDDLES = re.compile(r"(?://|#|\"\"\").*\b(whatever|nobody|none of these)\b", re.IGNORECASE)
TEST = re.compile(r"^TEST(?:_F|_P)?\(\s*\w+,\s*(\w+)", re.MULTILINE)
NO_CODE = re.compile(r"\s*(//.*)?")


def files(*patterns):
    listed = subprocess.run(["git", "ls-files", *patterns], capture_output=True, text=True, check=True).stdout
    return [pathlib.Path(path) for path in listed.splitlines() if pathlib.Path(path).is_file()]


def code_lines(paths):
    return sum(1 for path in paths for line in path.read_text().splitlines() if not NO_CODE.fullmatch(line))


def faults():
    sources = files("Sources/*.cpp", "Sources/*.h", "Sources/*.qml")
    tests = files("Tests/*.cpp", "Tests/*.h", "Tests/*.py")
    for path in sources:
        if (length := len(path.read_text().splitlines())) > LINES_OF_A_FILE:
            yield f"{path}: {length} lines, more than {LINES_OF_A_FILE}"
    scripts = files("scripts/*", "tools/*", "Benchmarks/*", "cmake/*", "packaging/*.txt")
    for path in [*sources, *tests, *scripts]:
        if path.samefile(__file__):
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if match := RIDDLES.search(line):
                yield f'{path}:{number}: "{match[1]}" in a comment: say who or what'
    for path in tests:
        for name in TEST.findall(path.read_text()):
            if len(name) > LETTERS_OF_A_NAME:
                yield f"{path}: the test's name {name} has more than {LETTERS_OF_A_NAME} letters"
    share = code_lines(tests) / code_lines(sources)
    print(f"    tests are {share:.1%} of the code")
    if share > SHARE_OF_TESTS:
        yield f"the tests are {share:.1%} of the code, more than {SHARE_OF_TESTS:.0%}"


if __name__ == "__main__":
    found = list(faults())
    print("\n".join(found), end="\n" if found else "")
    sys.exit(1 if found else 0)
