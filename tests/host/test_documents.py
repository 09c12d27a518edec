"""The tables of host/README.md and the settings' example against the sources."""

import pathlib
import re

import pytest

HOST = pathlib.Path(__file__).resolve().parents[2] / "host"
README = (HOST / "README.md").read_text()
EXAMPLE = (HOST / "xfhost.conf.example").read_text()


def table(header):
    """Rows of the table of README.md whose first line is `header`."""
    lines = README.split(header + "\n")[1].splitlines()[1:]
    rows = []
    for line in lines:
        if not line.startswith("|"):
            break
        rows.append([cell.strip() for cell in line.strip("|").split("|")])
    assert rows, header
    return rows


# -- Settings --


def keys_in_code():
    source = (HOST / "base/settings.cpp").read_text()
    listed = source.split("constexpr Key keys[] = {")[1].split("\n};")[0]
    return re.findall(r'^    \{"(\w+)"', listed, re.M)


def keys_in_example():
    return dict(re.findall(r"^#([a-z_]+) (\S.*)$", EXAMPLE, re.M))


def defaults():
    """Members of Settings that have a value from the start, as it is written."""
    source = (HOST / "base/settings.h").read_text()
    members = source.split("struct Settings {")[1].split("\n};")[0]
    return dict(re.findall(r"^    [\w:]+ (\w+) =\s+([^;]+);", members, re.M))


def as_value(written):
    """What stands behind the `=` of a member, as the file has it."""
    if written in ("true", "false"):
        return "yes" if written == "true" else "no"
    if written.startswith('"'):
        return written.strip('"')
    return str(eval(re.sub(r"int64_t\{(\d+)\}", r"\1", written), {}))


def test_settings_are_those_of_the_code():
    assert sorted(keys_in_example()) == sorted(keys_in_code())
    assert len(keys_in_code()) > 30


@pytest.mark.parametrize("key", sorted(defaults()))
def test_default_is_that_of_the_code(key):
    assert keys_in_example()[key] == as_value(defaults()[key])


@pytest.mark.parametrize("key", sorted(set(keys_in_code()) - set(defaults())))
def test_no_default_is_said(key):
    """An example's value that is no default: the paragraph says what is."""
    paragraph, = (p for p in EXAMPLE.split("\n\n") if f"\n#{key} " in p)
    assert re.search(r"\b(No d|D)efault\b", paragraph), paragraph


# -- Exit codes --

MEANING = {"done": "done", "timeout": "time limit", "bad_name": "file name",
           "no_space": "no space", "login": "login", "host_key": "host key",
           "connection": "connection", "usage": "arguments",
           "other": "anything else"}


def numbered(names):
    """Names of an enumeration, each with its value."""
    codes, following = {}, 0
    for name, value in names:
        following = int(value) if value else following
        codes[name] = following
        following += 1
    return codes


def exit_codes():
    """By file: the programs' exit codes by name."""
    found = {}
    for path in sorted((HOST / "transfer").iterdir()):
        text = path.read_text() if path.is_file() else ""
        for body in re.findall(r"array set exit_code \{([^}]*)\}", text):
            words = body.split()
            found[path.name] = numbered(zip(words[::2], words[1::2]))
        for body in re.findall(r"enum class \w+ \{([^}]*host_key = [^}]*)\}", text):
            found[path.name] = numbered(re.findall(r"(\w+)(?: = (\d+))?", body))
    return found


def test_exit_codes_are_those_of_the_code():
    documented = {int(code): text for code, text in
                  table("| exit code | meaning |")}
    assert exit_codes()
    for file, codes in exit_codes().items():
        assert sorted(codes.values()) == sorted(documented), file
        for name, code in codes.items():
            assert MEANING[name] in documented[code], (file, name)


# -- Commands of the text configuration --


def ranges():
    """By check function: the numbers that it lets through."""
    source = (HOST / "qsh/commands.cpp").read_text()
    return {name: f"{low}-{high}" for name, low, high in re.findall(
        r"\*(check_\w+)\(const Words &w\) \{\s+return number_between\(w\[0\], "
        r"(\d+), (\d+)\)", source)}


def argument_text(least, most, check):
    if check in ranges():
        return ranges()[check]
    if check == "check_route":
        return "prefix next-hop"
    if most == "any":
        return "text"
    words = {"check_address": "address", "check_prefix": "prefix"}
    return words.get(check, "name") if least == "1" else ""


def commands_in_code():
    """By mode: its commands as the document writes them."""
    source = (HOST / "qsh/commands.cpp").read_text()
    modes = {}
    for mode, keyword, kind, least, most, check, _ in re.findall(
            r'\{Mode::(\w+), "([^"]+)", (\w+), (\d+), (\w+), (\w+),\s+'
            r"Mode::(\w+)\}", source):
        text = f"`{keyword}` {argument_text(least, most, check)}".strip()
        if kind == "mode":
            modes.setdefault(keyword, []).insert(0, text)
        else:
            modes.setdefault(mode, []).append(text)
    return modes


def commands_in_document():
    modes = {}
    for mode, commands in table("| mode | commands |"):
        keyword = re.sub(r"`(\w+)`.*", r"\1", mode)
        modes[keyword] = [] if mode == "top" else [mode]
        modes[keyword] += commands.split(", ")
    return modes


def test_commands_are_those_of_the_code():
    documented, written = commands_in_document(), commands_in_code()
    assert sorted(documented) == sorted(written)
    for mode, commands in written.items():
        assert sorted(documented[mode]) == sorted(commands), mode
