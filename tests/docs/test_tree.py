"""What documents tell of the tree: folders, links, and who calls which header."""

import re
import subprocess

import pytest

from documents import TOP

README = (TOP / "README.md").read_text()
TABLE = dict(re.findall(r"^\| `(\S+/)` \| (.*) \|$", README, re.M))
PAGES = sorted(str(each.relative_to(TOP)) for folder in
               ("docs", "host", "platform", "contrib/ansible", "")
               for each in (TOP / folder).glob("*.md"))
HEADERS = sorted((TOP / "platform").glob("*.h"))


def folders(of):
    """Names of the folders there with files that git knows."""
    files = subprocess.run(["git", "ls-files"], cwd=TOP / of, check=True,
                           capture_output=True, text=True).stdout
    return {each.partition("/")[0] for each in files.splitlines()
            if "/" in each and not each.startswith(".")}


def test_every_folder_is_in_the_table():
    named = {each.partition("/")[0] for each in TABLE}
    assert "host" in named and folders(".") == named


def test_every_folder_of_tests_is_told_of():
    named = set(re.findall(r"`(\w+)/`", TABLE["tests/"]))
    assert "unit" in named and folders("tests") == named


@pytest.mark.parametrize("page", PAGES)
def test_links_lead_to_files(page):
    text = (TOP / page).read_text()
    links = [each for each in re.findall(r"\]\(([^)#\s]+)", text)
             if "://" not in each]
    assert [each for each in links
            if not ((TOP / page).parent / each).is_file()] == []


def contexts(header):
    """In which processes the calls of a header come."""
    told = "".join(re.findall(r"\* Context[^:]*:([^.]*)\.", header.read_text()))
    return {each for each in ("agent", "child")
            if re.search(rf"\b{each}\b", told)}


@pytest.mark.parametrize("header", HEADERS, ids=lambda header: header.name)
def test_callers_are_those_of_the_header(header):
    if header.name in ("messages.h", "visibility.h"):
        return  # there is nothing to call
    rows = re.search(r"^\| agent, (.*)\n\| copy process, (.*)$",
                     (TOP / "docs/platform.md").read_text(), re.M)
    name = rf"`{header.stem}(\.h|_\w+)`"
    named = {process for process, row in zip(("agent", "child"), rows.groups())
             if re.search(name, row)}
    assert contexts(header) == named
