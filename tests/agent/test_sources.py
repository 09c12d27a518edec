"""The tree speaks of the system, not of papers about it."""

import pathlib
import subprocess

import pytest

TREE = pathlib.Path(__file__).resolve().parents[2]
# Put together, so that this file is clean too.
WORDS = [r"\bspeci" r"fication\b", r"\bsp" r"ec\b", r"\bPart" r" [1-5]\.[1-5]\b",
         r"\bshared/sp" r"ec"]


def grep(pattern):
    return subprocess.run(
        ["git", "-c", f"safe.directory={TREE}", "-C", str(TREE), "grep",
         "-nIiP", pattern], capture_output=True, text=True)


@pytest.mark.parametrize("word", WORDS)
def test_word_is_not_there(word):
    found = grep(word)
    assert found.returncode == 1, found.stdout + found.stderr


def test_the_search_finds():
    assert grep(r"\bconfig_copy_mib\b").returncode == 0
