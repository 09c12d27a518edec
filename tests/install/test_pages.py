"""The manual pages: without a warning, complete, and true of the programs."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "tests/host"))

from test_documents import as_value, defaults, keys_in_code  # noqa: E402

BUILD = pathlib.Path(os.environ["XF_TEST_BUILD"])
PAGES = sorted((TOP / "docs/man").glob("*.[58]"))
OURS = {page.name for page in PAGES}
_folder = tempfile.TemporaryDirectory()


def installed():
    """The folder of the programs as they are installed."""
    subprocess.run(["cmake", "--install", BUILD, "--component", "agent"],
                   env={**os.environ, "DESTDIR": _folder.name}, check=True,
                   capture_output=True)
    return next(pathlib.Path(_folder.name).rglob("brim")) / "bin"


PROGRAMS = installed()
# What other programs start, and nobody else.
NO_PAGE = {"xfaskpass", "xfkeep"}


def program(name):
    return BUILD / "host/xftrace" if name == "xftrace" else PROGRAMS / name


def names():
    """Every program that is installed for somebody to start."""
    return sorted({each.name for each in PROGRAMS.iterdir()} - NO_PAGE |
                  {"xftrace"})


def page_of(name):
    return (TOP / f"docs/man/{name}.8").read_text()


def run(name, *arguments):
    return subprocess.run(
        [program(name), *arguments], capture_output=True, text=True,
        stdin=subprocess.DEVNULL, timeout=60,
        env={"PATH": os.environ["PATH"], "LC_ALL": "C",
             "XF_CONFIG": str(TOP / "host/xfhost.conf.example")})


def usage_of(name):
    """What a program says that is given what no program takes."""
    done = run(name, *["--no-such-option"] * 20)
    return done.stdout + done.stderr


def options_in(text):
    """Options of a usage text, with their hyphens."""
    return set(re.findall(r"(?<![\w./-])--?[a-z][a-z-]*", text)) - \
        {"--no-such-option"}


def options_documented(name):
    return {"-" + each for each in
            re.findall(r"(?:^\.|\s)Fl (\S+)", page_of(name), re.M)}


def options_in_sources(name):
    """The option texts in the sources of a program's own."""
    sources = {
        "qsh": ["qsh/main.cpp"], "procd": ["procd/main.cpp"],
        "xftrace": ["trc/xftrace.cpp"], "xfvrf": ["transfer/xfvrf.cpp"],
        "ovan-tftp": ["transfer/ovan_tftp.cpp"],
        "xfsettings": ["transfer/xfsettings.cpp"]}
    found = set()
    for each in sources.get(name, []):
        text = (TOP / "host" / each).read_text()
        found |= set(re.findall(r'"(--?[a-z][a-z-]*)"', text))
    if name == "xfenrol":
        text = (PROGRAMS / name).read_text()
        found |= set(re.findall(r"^\s*(--?[a-z][a-z-]*)\)", text, re.M))
    return found


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_renders_without_warnings(page):
    linted = subprocess.run(["mandoc", "-T", "lint", page],
                            capture_output=True, text=True)
    # Pages of other packages may be missing on this machine.
    told = [line for line in (linted.stdout + linted.stderr).splitlines()
            if not re.search(r"mandoc\.db|referenced manual not found", line)]
    assert told == []
    rendered = subprocess.run(
        ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", str(page)],
        capture_output=True, text=True, env={**os.environ, "MANWIDTH": "80"})
    assert rendered.returncode == 0 and rendered.stdout
    assert rendered.stderr == ""


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_refers_to_pages_that_exist(page):
    others = {"ip-netns.8", "ip-vrf.8", "snmpd.8", "snmpd.conf.5",
              "ssh-keygen.1", "systemd.1"}
    for name, section in re.findall(r"^\.Xr (\S+) (\d)", page.read_text(), re.M):
        assert f"{name}.{section}" in OURS | others


def test_each_program_has_a_page():
    assert names(), "no programs were built"
    assert {f"{each}.8" for each in names()} <= OURS


@pytest.mark.parametrize("name", names())
def test_options_are_those_of_the_program(name):
    documented = options_documented(name)
    assert documented == options_in(usage_of(name)) | options_in_sources(name)


def test_the_commands_of_qsh_are_on_its_page():
    used = set(re.findall(r'"([a-z][a-z -]+)"', usage_of("qsh")))
    assert len(used) > 3
    assert used == {each for each in re.findall(
        r"^\.It Ic (.*)$", page_of("qsh"), re.M) if "config" in each}


# How a program is called with each option, and what it then ends with.
CALLS = {
    ("qsh", "-c"): (["show no-such-thing"], "unknown command"),
    ("qsh", "--apply"): (["/nonexistent", "/nonexistent"], "/nonexistent:"),
    ("xftrace", "--help"): ([], "usage: xftrace"),
    ("xfvrf", "--id"): (["management"], "1"),
    ("xfenrol", "-v"): (["no-such-vrf", "192.0.2.1"], "no VRF of that name"),
}


def test_documented_options_work():
    documented = {(name, option) for name in names()
                  for option in options_documented(name)}
    assert documented == CALLS.keys()
    for (name, option), (arguments, said) in CALLS.items():
        done = run(name, option, *arguments)
        assert said in done.stdout + done.stderr, (name, option)


@pytest.mark.parametrize("name", names())
def test_arguments_are_those_of_the_usage(name):
    """Each word in capitals of the usage is an argument on the page, and the
    other way round."""
    usage = re.sub(r"[^\n]*usage:", "", usage_of(name))
    used = {each.lower() for each in
            re.findall(r"(?<![a-z])[A-Z][A-Z0-9-]{1,}\b", usage)}
    if not used:
        return  # it is written in another way, or there are none
    synopsis = page_of(name).partition(".Sh SYNOPSIS")[2].partition(".Sh")[0]
    documented = {word for line in re.findall(r"\bAr ([^\n]*)", synopsis)
                  for word in re.findall(r"[a-z0-9-]+", line.lower())}
    # Words of other macros on the line; and qsh names its commands.
    assert used == documented - {"op", "cm", "fl", "v"} - \
        ({"command"} if name == "qsh" else set())


# --- Settings ---------------------------------------------------------------

def settings_page():
    """The keys with their texts."""
    text = (TOP / "docs/man/xfhost.conf.5").read_text()
    parts = re.split(r"^\.It Ic (\w+).*\n", text, flags=re.M)
    return dict(zip(parts[1::2], parts[2::2]))


def test_settings_are_those_of_the_program():
    assert len(keys_in_code()) > 30
    assert sorted(settings_page()) == sorted(keys_in_code())


@pytest.mark.parametrize("key", keys_in_code())
def test_every_setting_has_its_default(key):
    told = re.search(r"Default:\s+(.*)", settings_page()[key])
    assert told, "no default"
    if key in defaults():
        assert told[1].startswith(as_value(defaults()[key]) + ".")
