"""docs/architecture.md against the tree: what it names exists."""

import html
import pathlib
import re

import pytest

TOP = pathlib.Path(__file__).parents[2]
TEXT = (TOP / "docs/architecture.md").read_text()
NAMES = sorted(set(re.findall(r"`([^`\n]+)`", TEXT)))
SOURCES = {each: each.read_text() for folder in ("infra", "platform", "host")
           for each in sorted((TOP / folder).rglob("*"))
           if each.suffix in (".cpp", ".h")}
# Of Net-SNMP, the system or another package.
FOREIGN = {"snmpd", "fork", "ssh"}


def is_path(name):
    return (TOP / name).exists()


def is_source(name):
    return any(each.name == name for each in SOURCES)


def is_setting(name):
    return f'{{"{name}",' in SOURCES[TOP / "host/base/settings.cpp"]


def is_program(name):
    """What the build installs, with an argument perhaps."""
    word = name.split()[0]
    made = "".join(each.read_text()
                   for each in (TOP / "host").rglob("CMakeLists.txt"))
    return re.search(rf"\b{re.escape(word)}\b", made) is not None


def is_identifier(name):
    """A function, type or constant, or a word that marks places."""
    word = re.compile(rf"(?<![\w-]){re.escape(name.removeprefix('struct '))}"
                      rf"(?![\w-])")
    return any(word.search(text) for text in SOURCES.values())


def is_file_at_run_time(name):
    """A name that the sources write, or put together of its last part."""
    last = name.rstrip("/").rsplit("/", 1)[-1]
    if re.fullmatch(r"sap\.\d+", name):
        return '"sap."' in SOURCES[TOP / "host/ipcbus/ipcbus.cpp"]
    return any(f'"{last}' in text or f"/{last}" in text
               for text in SOURCES.values())


@pytest.mark.parametrize("name", NAMES)
def test_what_is_named_exists(name):
    assert (name in FOREIGN or is_path(name) or is_source(name) or
            is_setting(name) or is_program(name) or is_identifier(name) or
            is_file_at_run_time(name)), f"nothing is called {name}"


def test_names_of_nothing_are_noticed():
    for name in ("no_such_function", "host/no/such.cpp", "no_such_setting",
                 "nosuchprogram", "no-such-file"):
        with pytest.raises(AssertionError):
            test_what_is_named_exists(name)


def test_opcodes():
    header = "".join(text for path, text in SOURCES.items()
                     if path.parent.name == "platform")
    rows = re.findall(r"^\| (\d+) \| `(\w+)`", TEXT, re.MULTILINE)
    assert len(rows) == 6
    for number, name in rows:
        assert re.search(rf"#define {name} {number}\b", header), name
    # None is missing.
    defined = set(re.findall(r"#define (IPCBUS_OPC_\w+)", header))
    assert defined <= {name for _, name in rows}


def test_the_picture_is_that_of_its_text():
    drawn = html.unescape((TOP / "docs/architecture.svg").read_text())
    source = (TOP / "docs/architecture.dot").read_text()
    labels = re.findall(r'label="([^"]+)"', source)
    assert len(labels) > 20
    for label in labels:
        for line in label.split(r"\n"):
            assert f">{line.strip()}<" in drawn.replace("> ", ">"), line
