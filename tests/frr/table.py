"""Documents that a test writes, and otherwise compares."""

import os
import pathlib

DOCS = pathlib.Path(__file__).parents[2] / "docs"


def compare(name, test, title, introduction, head, rows):
    """`rows` against the table that is kept in docs/."""
    rewrite = f"XF_WRITE_FRR=1 ctest --test-dir build -R 'frr[.]{test}'"
    cells = [head, ["---"] * len(head), *rows]
    text = (f"<!-- Written by a test. To write it anew: {rewrite} -->\n"
            f"# {title}\n\n{introduction}\n" +
            "".join("| " + " | ".join(row) + " |\n" for row in cells))
    document = DOCS / name
    if os.environ.get("XF_WRITE_FRR") == "1":
        document.write_text(text)
    assert document.read_text() == text, f"not up to date; run {rewrite}"
