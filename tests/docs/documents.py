"""What README and docs/ tell a reader to type, for tests that run it.

A test takes a chapter, and all that is in it:

    with chapter("docs/operation.md", "Users") as told:
        run(fill(told.take("runuser"), USER="copier"))

test_commands.py looks for these words in the tests: a command in a chapter that
no test takes makes it fail.

usage: documents.py DOCUMENT CHAPTER [BEGIN]   prints the commands, or the one
that begins so, each on a line"""

import contextlib
import pathlib
import re
import sys
import textwrap
from typing import NamedTuple

TOP = pathlib.Path(__file__).resolve().parents[2]
# Programs that a span of `code` begins with if it is a command.
PROGRAMS = {
    "ansible-playbook", "apt", "cat", "cmake", "cp", "ctest", "docker",
    "dpkg-buildpackage", "dpkg-statoverride", "git", "journalctl", "ln",
    "logrotate", "man", "mkdir", "mount", "mv", "pkg-config", "procd", "python3",
    "qemu-ppc", "qsh", "runuser", "setcap", "snmpbulkwalk", "snmpd", "snmpget",
    "snmpset", "snmptrapd", "snmpwalk", "ssh-keyscan", "ssh-keygen", "sudo",
    "systemctl", "systemd-analyze", "systemd-tmpfiles", "usermod", "vtysh",
    "xfcopy", "xfenrol", "xfsettings", "xftrace", "xfvrf"}
# Spans of code that tell of a command without the words that it would need.
SPOKEN_OF = {"cat -v", "qsh --apply"}
# What the documents write for something that is another one at each reader's:
# tests say what it is theirs.
STANDS_FOR = {
    "SERVER": r"192\.0\.2\.1\b",
    "SWITCH": r"192\.0\.2\.11\b(:161\b)?",
    "SECOND": r"192\.0\.2\.12\b",
    "STATION": r"192\.0\.2\.9\b",
    "TRAPS": r"\budp:162\b",
    "SNMP": r"/etc/snmp/snmpd\.conf\.d\b",
    "FINGERPRINT": r"\bFINGERPRINT\b|(?<=SHA256:)\.\.\.",
    "USER": r"\bUSER\b",
    "PASSWORD": r"\bPASSWORD\b",
    "VRF": r"\bVRF\b",
    "FOLDER": r"/tmp/xf-by-hand\b",
    "BUILD": r"\$PWD/build\b|(?<!\S)build(?=/)",
    "SECONDS": r"(?<=fuzz\.sh )60\b",
    "SHARE": r"/usr/share/libconfigcopymib\b",
    "LIBRARY": r"/path/of/libxfplatform\.so\.1",
    "CRASH": r"\bcrash-\.\.\.",
    "PUBLIC_KEY": r"\bssh-ed25519 PUBLIC-KEY fabric\b",
}


class Command(NamedTuple):
    """A block of lines as a shell reads them, or a span of code."""
    document: str
    line: int
    chapter: str
    text: str

    @property
    def place(self):
        return f"{self.document}:{self.line}"


def documents():
    """Their names, as chapter() takes them; without those that a test writes of
    what it has done."""
    found = [TOP / "README.md", *TOP.glob("docs/*.md"), *TOP.glob("docs/man/*")]
    return sorted(str(each.relative_to(TOP)) for each in found
                  if not each.read_text().startswith("<!-- Written by a test"))


def is_command(span):
    """Whether a span of code is a whole command: a program or a script of the
    tree, with arguments."""
    word, _, rest = span.partition(" ")
    return bool(rest) and span not in SPOKEN_OF and (
        word in PROGRAMS or word.startswith("scripts/"))


def commands_of_page(name, text):
    """Those of a manual page: what is displayed as it stands."""
    found, chapter, begun = [], "", None
    lines = text.splitlines()
    for number, line in enumerate(lines, 1):
        if line.startswith(".Sh "):
            chapter = line[4:]
        elif line.startswith(".Bd -literal"):
            begun = number
        elif line == ".Ed" and begun:
            shown = "\n".join(lines[begun:number - 1]).replace("\\e", "\\")
            found.append(Command(name, begun + 1, chapter, shown))
            begun = None
    return found


def blocks(lines):
    """Number and text of each block: fenced, or indented behind a blank line."""
    block, fenced, before = [], False, ""
    for number, line in enumerate([*lines, ""], 1):
        fence = line.lstrip().startswith("```")
        indented = line.startswith("    ") and (block or not before.strip())
        if not fence and (fenced or indented):
            block.append(line)
        elif block:
            yield number - len(block), textwrap.dedent("\n".join(block))
            block = []
        fenced = fenced != fence
        before = line
    assert not fenced, "a fence without an end"


def chapters_of(lines):
    """The heading that each line is under."""
    heading, found = "", []
    for line in lines:
        if re.match(r"#+ ", line):
            heading = line.lstrip("# ")
        found.append(heading)
    return found


def without(lines, shown):
    """The text without what is shown in blocks, line by line."""
    lines = list(lines)
    for begun, block in shown.items():
        size = block.count("\n") + 1
        lines[begun - 1:begun - 1 + size] = [""] * size
    return lines


def commands_of_text(name, text):
    """Those of a document: blocks, and spans of code that are commands."""
    lines = text.splitlines()
    shown = dict(blocks(lines))
    prose = without(lines, shown)
    chapters = chapters_of(prose)
    found = list(shown.items())
    for match in re.finditer(r"`([^`]+)`", "\n".join(prose)):
        span = " ".join(match[1].split())
        if is_command(span):
            found.append((match.string.count("\n", 0, match.start()) + 1, span))
    return [Command(name, line, chapters[line - 1], each)
            for line, each in sorted(found)]


def commands(document):
    """All commands of a document, in order."""
    text = (TOP / document).read_text()
    if document.endswith(".md"):
        return commands_of_text(document, text)
    return commands_of_page(document, text)


class Chapter:
    """The commands of a chapter that a test has still to take."""

    def __init__(self, document, heading):
        self.place = f"{document}: {heading}"
        self.left = [each for each in commands(document)
                     if each.chapter == heading]
        assert self.left, f"{self.place}: there is no command"

    def take(self, begin=""):
        """The text of the next command that begins so."""
        for each in self.left:
            if each.text.startswith(begin):
                self.left.remove(each)
                return each.text
        raise AssertionError(f"{self.place}: no command begins with {begin!r}")

    def take_all(self):
        return [self.take() for _ in list(self.left)]


@contextlib.contextmanager
def chapter(document, heading):
    """A Chapter, all of which has to be taken before the end."""
    told = Chapter(document, heading)
    yield told
    assert not told.left, "\n".join(
        f"{each.place}: not run: {each.text}" for each in told.left)


def fill(text, **values):
    """A command with what is written for something else replaced."""
    for name, value in values.items():
        text = re.sub(STANDS_FOR[name], lambda _, v=value: str(v), text)
    return text


def lines_of(block):
    """A block's commands, where each line is one or goes on with a backslash."""
    return re.sub(r"\\\n\s*", "", block).splitlines()


if __name__ == "__main__":
    name, heading, *begin = sys.argv[1:]
    told = Chapter(name, heading)
    for text in [told.take(*begin)] if begin else told.take_all():
        print("\n".join(lines_of(text)))
