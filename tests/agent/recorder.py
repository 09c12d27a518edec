"""The rows of docs/faults.md and docs/failures.md. A conftest.py imports both
names."""

import os
import pathlib

import pytest

import reasons

ROWS = pytest.StashKey()


@pytest.fixture
def fault(request):
    """Writes rows of docs/faults.md: fault(area, what was done, what came of
    it), after the test has seen it come. They count if the test passes. Behind
    the row is why copies failed meanwhile, for docs/failures.md."""
    rows = request.node.stash.setdefault(ROWS, [])
    why = {}
    reasons.noted.clear()

    def write(*row):
        nonlocal why
        # Several rows may be about one copy.
        if reasons.noted or "failed" not in row[-1]:
            why = dict.fromkeys(reasons.noted)  # each once, in their order
        reasons.noted.clear()
        rows.append((*row, name_of(request.node),
                     *(text for each in why for text in each)))
    return write


def name_of(item):
    kind = item.path.parent.name
    return f"{kind}.{item.path.stem.removeprefix('test_')} {item.name}"


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    folder = os.environ.get("XF_TEST_FAULTS")
    if "fault" not in item.fixturenames:
        return
    assert folder, "add this file to the recorders in CMakeLists.txt"
    test = name_of(item)
    if report.failed:
        item.stash[ROWS] = []
    elif report.skipped:
        item.stash[ROWS] = [("skipped", str(call.excinfo.value), "", test)]
    rows = item.stash.get(ROWS, [])
    file = pathlib.Path(folder) / test.replace("/", "-")
    file.parent.mkdir(exist_ok=True)
    file.write_text("".join("\t".join(row) + "\n" for row in rows))
