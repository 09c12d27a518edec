"""The rows of docs/faults.md. A conftest.py imports both names."""

import os
import pathlib

import pytest

ROWS = pytest.StashKey()


@pytest.fixture
def fault(request):
    """Writes rows of docs/faults.md: fault(area, what was done, what came of
    it), after the test has seen it come. They count if the test passes."""
    rows = request.node.stash.setdefault(ROWS, [])
    return lambda *row: rows.append(row)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    folder = os.environ.get("XF_TEST_FAULTS")
    if "fault" not in item.fixturenames:
        return
    assert folder, "add this file to the recorders in CMakeLists.txt"
    kind = item.path.parent.name
    test = f"{kind}.{item.path.stem.removeprefix('test_')} {item.name}"
    if report.failed:
        item.stash[ROWS] = []
    elif report.skipped:
        item.stash[ROWS] = [("skipped", str(call.excinfo.value), "")]
    rows = item.stash.get(ROWS, [])
    file = pathlib.Path(folder) / test.replace("/", "-")
    file.parent.mkdir(exist_ok=True)
    file.write_text("".join("\t".join((*row, test)) + "\n" for row in rows))
