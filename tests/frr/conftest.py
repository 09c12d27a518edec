"""Fixtures. Each test has routers of its own, with nothing configured."""

import pathlib
import sys

import pytest

for each in ("hostile", "agent", "docs"):
    sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / each))
import routers  # noqa: E402
from recorder import fault, pytest_runtest_makereport  # noqa: E402, F401


@pytest.fixture
def make_router(tmp_path):
    routers.needed()
    made = []

    def make(*arguments, **settings):
        folder = tmp_path / f"router-{len(made)}"
        folder.mkdir()
        made.append(routers.Router(folder, *arguments, **settings))
        return made[-1]
    yield make
    for router in made:
        router.close()


@pytest.fixture
def router(make_router):
    return make_router()
