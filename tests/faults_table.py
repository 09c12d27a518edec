"""Makes the tables of faults and of failures from the rows that the tests have
written, and compares them with the copies that are kept.

usage: faults_table.py ROWS FAULTS FAILURES

ROWS is a folder with a file for each test: area, fault, outcome and the test's
name, with tabs between; behind them, if a copy failed, its reason and advice. A
test that could not run has the area "skipped"; its rows are taken from the
copies. The rows are used up. With XF_WRITE_FAULTS=1 in the environment the
copies are written instead.

The words of a failure may depend on who was faster, so of the table of failures
only what fails is compared; the tests look at the words.
"""

import difflib
import os
import pathlib
import sys

AREAS = ["Copy process", "Fork", "Descriptors", "Memory", "Disk",
         "Message transport", "System manager", "Switches of the fabric",
         "Servers", "Hostile servers", "Somebody on the switch or the network",
         "Clock", "Agent", "FRR"]
# Of the table of failures alone.
EXIT_CODES = "Exit codes of the transfer programs"

FAULTS = """\
Made by the tests; `XF_WRITE_FAULTS=1 ctest --test-dir build -R faults.table` makes it anew.

# Faults that were tried, and what came of them

Each row was written by the test that it names, after the test had seen the
outcome. "Goes on" means that the same agent did another copy to its end.
"""

FAILURES = """\
Made by the tests; `XF_WRITE_FAULTS=1 ctest --test-dir build -R faults.table` makes it anew.

# Copies that failed, what was said, and what to do

The reason and the advice of each copy that failed in the tests, as the history
of the agent has them and `xfcopy` shows them. What each run says otherwise is N
here, and the server is 192.0.2.1. A reason names what was being done; behind a
colon is what went wrong, and in quotes what the server, or the program that
spoke with it, said.
"""


def written(folder):
    """The rows of all tests, and the names of those that were skipped."""
    rows, skipped = [], {}
    for file in sorted(folder.iterdir()):
        for line in file.read_text().splitlines():
            area, fault, outcome, test, *why = line.split("\t")
            if area == "skipped":
                skipped[test] = fault
            else:
                rows.append((area, fault, outcome, test, why))
    return rows, skipped


def fault_rows(rows):
    return [row[:4] for row in rows if row[0] != EXIT_CODES]


def failure_rows(rows):
    """Each once, in their order: a test may do something several times."""
    return list(dict.fromkeys((area, why[0], fault, why[1], test)
                              for area, fault, _, test, why in rows if why))


def kept(table, tests):
    """The rows of the copy that come from these tests."""
    rows, area = [], None
    for line in table.splitlines():
        if line.startswith("## "):
            area = line[3:]
        cells = [each.strip() for each in line.strip("|").split(" | ")]
        if line.startswith("| ") and cells[-1].strip("`") in tests:
            rows.append((area, *cells[:-1], cells[-1].strip("`")))
    return rows


def printed(header, columns, rows):
    unknown = {row[0] for row in rows} - {*AREAS, EXIT_CODES}
    assert not unknown, f"no such area: {unknown}"
    assert not any("|" in cell for row in rows for cell in row), "a | in a cell"
    text = header
    for area in [*AREAS, EXIT_CODES]:
        # Sorted by test; the rows of one test stay in its order.
        of_area = sorted((row for row in rows if row[0] == area),
                         key=lambda row: row[-1])
        if of_area:
            text += (f"\n## {area}\n\n| {' | '.join(columns)} |\n"
                     f"{'|---' * len(columns)}|\n")
        for _, *cells, test in of_area:
            text += f"| {' | '.join(cells)} | `{test}` |\n"
    return text


def whole(table):
    return table.splitlines(True)


def what_fails(table):
    """Of each row of failures what it means and its test, once."""
    cells = [line.split(" | ") for line in whole(table)]
    return list(dict.fromkeys(
        " | ".join(row if len(row) < 4 else (row[1], row[3])) for row in cells))


def compare(copy, before, now, part):
    """Whether the copy is as it should be; writes it if that is asked for."""
    if os.environ.get("XF_WRITE_FAULTS") == "1":
        copy.write_text(now)
        return True
    before, now = part(before), part(now)
    sys.stdout.writelines(difflib.unified_diff(before, now, str(copy), "now"))
    return before == now


def main(folder, faults, failures):
    rows, skipped = written(folder)
    for test, why in skipped.items():
        print(f"not run: {test}: {why}")
    for file in folder.iterdir():
        file.unlink()
    assert rows, "no test has written a row"
    good = True
    for copy, header, columns, found, part in (
            (faults, FAULTS, ["fault", "outcome", "test"], fault_rows(rows),
             whole),
            (failures, FAILURES, ["you see", "it means", "do this", "test"],
             failure_rows(rows), what_fails)):
        before = copy.read_text() if copy.exists() else ""
        now = printed(header, columns, found + kept(before, skipped))
        good = compare(copy, before, now, part) and good
        print(f"{len(found)} rows of {copy.name}")
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
