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
    the row is why a copy failed, for docs/failures.md: `why`, its reason and
    advice or nothing, or else what the one that has failed since the row
    before said."""
    rows = request.node.stash.setdefault(ROWS, [])
    reasons.noted.clear()

    def write(area, what, outcome, why=None):
        found = {tuple(map(reasons.general, each))
                 for each in (reasons.noted if why is None else [why])}
        reasons.noted.clear()
        assert len(found) <= 1, "a row for each copy, please, or its `why`"
        rows.append((area, what, outcome, name_of(request.node),
                     *(text for each in found for text in each)))
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
        why = " ".join(str(call.excinfo.value).split())
        item.stash[ROWS] = [("skipped", why, "", test)]
    rows = item.stash.get(ROWS, [])
    file = pathlib.Path(folder) / test.replace("/", "-")
    file.parent.mkdir(exist_ok=True)
    file.write_text("".join("\t".join(row) + "\n" for row in rows))
