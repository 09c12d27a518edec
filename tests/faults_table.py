"""Makes the table of faults from the rows that the tests have written, and
compares it with the copy that is kept.

usage: faults_table.py ROWS TABLE

ROWS is a folder with a file for each test: area, fault, outcome and the test's
name, with tabs between. A test that could not run has the area "skipped"; its
rows are taken from the copy. The rows are used up. With XF_WRITE_FAULTS=1 in
the environment the copy is written instead.
"""

import difflib
import os
import pathlib
import sys

AREAS = ["Copy process", "Fork", "Descriptors", "Memory", "Disk",
         "Message transport", "System manager", "Switches of the fabric",
         "Servers", "Hostile servers", "Somebody on the switch or the network",
         "Clock", "Agent", "FRR"]

HEADER = """\
Made by the tests; `XF_WRITE_FAULTS=1 ctest --test-dir build -R faults.table` makes it anew.

# Faults that were tried, and what came of them

Each row was written by the test that it names, after the test had seen the
outcome. "Goes on" means that the same agent did another copy to its end.
"""


def written(folder):
    """The rows of all tests, and the names of those that were skipped."""
    rows, skipped = [], {}
    for file in sorted(folder.iterdir()):
        for line in file.read_text().splitlines():
            area, fault, outcome, test = line.split("\t")
            if area == "skipped":
                skipped[test] = fault
            else:
                rows.append((area, fault, outcome, test))
    return rows, skipped


def kept(table, tests):
    """The rows of the copy that come from these tests."""
    rows, area = [], None
    for line in table.splitlines():
        if line.startswith("## "):
            area = line[3:]
        cells = line.strip("|").split(" | ")
        if line.startswith("| ") and len(cells) == 3:
            fault, outcome, test = (each.strip() for each in cells)
            if test.strip("`") in tests:
                rows.append((area, fault, outcome, test.strip("`")))
    return rows


def printed(rows):
    unknown = {row[0] for row in rows} - set(AREAS)
    assert not unknown, f"no such area: {unknown}"
    assert not any("|" in cell for row in rows for cell in row), "a | in a cell"
    text = HEADER
    for area in AREAS:
        # Sorted by test; the rows of one test stay in its order.
        of_area = sorted((row for row in rows if row[0] == area),
                         key=lambda row: row[3])
        if of_area:
            text += (f"\n## {area}\n\n| fault | outcome | test |\n"
                     "|---|---|---|\n")
        for _, fault, outcome, test in of_area:
            text += f"| {fault} | {outcome} | `{test}` |\n"
    return text


def main(folder, copy):
    rows, skipped = written(folder)
    before = copy.read_text() if copy.exists() else ""
    for test, why in skipped.items():
        print(f"not run: {test}: {why}")
    now = printed(rows + kept(before, skipped))
    for file in folder.iterdir():
        file.unlink()
    assert rows, "no test has written a row"
    if os.environ.get("XF_WRITE_FAULTS") == "1":
        copy.write_text(now)
    elif now != before:
        sys.stdout.writelines(difflib.unified_diff(
            before.splitlines(True), now.splitlines(True), str(copy), "now"))
        sys.exit(1)
    print(f"{len(rows)} rows")


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
