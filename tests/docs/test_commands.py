"""Every command of README and docs/ is run by a test that takes it from there."""

import re

import pytest

from documents import (TOP, chapter, commands, commands_of_text, documents,
                       fill, lines_of)

# Whole documents that a test reads in its own way.
ELSEWHERE = {"docs/frr.md": "tests/frr/test_document.py"}
SCRIPTS = sorted((TOP / "scripts").glob("*.sh"))
TESTS = sorted(each for each in (TOP / "tests").rglob("*.py")
               if each.name != "documents.py")


def taken():
    """Document and chapter of each that a test or a script takes."""
    found = set()
    for files, words in (
            (TESTS, r'\bchapter\(\s*"([^"]+)",\s*"([^"]+)"'),
            (SCRIPTS, r'documents\.py"?[\s\\]+(\S+) "([^"]+)"')):
        for each in files:
            found |= set(re.findall(words, each.read_text()))
    return found


def not_taken(found, takers):
    return [f"{each.place}: {each.text.splitlines()[0]}" for each in found
            if each.document not in ELSEWHERE
            and (each.document, each.chapter) not in takers]


@pytest.mark.parametrize("document", documents())
def test_every_command_is_taken_by_a_test(document):
    assert not_taken(commands(document), taken()) == []


@pytest.mark.parametrize("document", ELSEWHERE)
def test_the_test_of_a_whole_document_reads_it(document):
    assert document in (TOP / ELSEWHERE[document]).read_text()


def test_what_is_taken_exists():
    """Not a chapter of another name, which nobody would miss."""
    there = {(each.document, each.chapter)
             for name in documents() for each in commands(name)}
    assert taken() <= there


DOCUMENT = """\
# Title

Text `qsh -c x`, `show x` and `snmpset
-v3 x`.

    one \\
        more
    two

## Chapter

- a point
    that goes on

      in a point
```
# fenced

    deeper
```
"""


def test_a_document_is_read():
    found = commands_of_text("x.md", DOCUMENT)
    assert [each[1:] for each in found] == [
        (3, "Title", "qsh -c x"), (3, "Title", "snmpset -v3 x"),
        (6, "Title", "one \\\n    more\ntwo"), (15, "Chapter", "in a point"),
        (17, "Chapter", "# fenced\n\n    deeper")]
    assert lines_of(found[2].text) == ["one more", "two"]


def test_a_command_that_nobody_takes_is_noticed():
    found = commands_of_text("x.md", DOCUMENT)
    assert not_taken(found, {("x.md", "Title")}) == [
        "x.md:15: in a point", "x.md:17: # fenced"]


def test_a_command_that_is_not_run_is_noticed():
    with pytest.raises(AssertionError, match=r"README.md:\d+: not run"):
        with chapter("README.md", "On a router") as told:
            told.take("apt build-dep")


def test_what_stands_for_something_else_is_filled_in():
    text = "xfenrol 192.0.2.1 SHA256:... USERS"
    assert fill(text, SERVER="127.0.0.2", FINGERPRINT="x", USER="me") == \
        "xfenrol 127.0.0.2 SHA256:x USERS"
    with pytest.raises(KeyError):
        fill(text, NOBODY="x")
