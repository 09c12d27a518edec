#!/usr/bin/python3
"""group_tests.py BUILD FILE...: for clang-tidy, which takes most of its time for
GoogleTest's headers: writes files into BUILD/grouped that include several of the
tests FILE... (*_test.cpp of one folder), and a compile_commands.json for them.
The headers are included first, and then each test in a namespace of its own, so
that what two tests name alike does not meet. Prints the files' names, with a
null between them."""

import itertools
import json
import pathlib
import re
import sys

# So that all processors have something to do.
TOGETHER = 7


def included(test):
    return re.findall(r"^#include (?:<.+>|\".+\.h\")$", test.read_text(), re.MULTILINE)


def grouped(tests):
    # The tests' own headers come first, as they do in the tests: what one of
    # them needs it includes.
    headers = dict.fromkeys(line for test in tests for line in included(test))
    yield from sorted(headers, key=lambda line: "<" in line)
    for test in tests:
        yield f"namespace {test.stem} {{"
        yield "// NOLINTNEXTLINE(bugprone-suspicious-include)"
        yield f'#include "{test}"'
        yield "}"


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    commands = {pathlib.Path(each["file"]): each for each in
                json.loads((build / "compile_commands.json").read_text())}
    folder = build / "grouped"
    folder.mkdir(exist_ok=True)
    written = []
    tests = sorted(pathlib.Path(name).resolve() for name in sys.argv[2:])
    for parent, group in itertools.groupby(tests, lambda test: test.parent):
        group = list(group)
        for first in range(0, len(group), TOGETHER):
            some = group[first:first + TOGETHER]
            file = folder / f"{len(written)}_{parent.name}.cpp"
            file.write_text("\n".join(grouped(some)) + "\n")
            command = commands[some[0]]
            written.append({
                "file": str(file), "directory": command["directory"],
                "command": command["command"].replace(
                    str(some[0]), f"-iquote {parent} {file}")})
    (folder / "compile_commands.json").write_text(json.dumps(written))
    print(*(each["file"] for each in written), sep="\0", end="")


if __name__ == "__main__":
    main()
