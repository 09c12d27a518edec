"""Figures as a reader sees them: medians, their spread, tables."""

import statistics


class Table:
    """A table of the document: its heading, what is to be known about it, the
    names of its columns and the cells of its rows, all of them text."""

    def __init__(self, heading, columns, note=""):
        self.heading = heading
        self.columns = columns
        self.note = note
        self.rows = []

    def add(self, *cells):
        assert len(cells) == len(self.columns)
        self.rows.append(cells)

    def text(self):
        lines = [f"### {self.heading}", ""]
        if self.note:
            lines += [self.note, ""]
        lines += [line(self.columns), line(["---"] * len(self.columns))]
        lines += [line(row) for row in self.rows]
        return "\n".join(lines)


def line(cells):
    return "| " + " | ".join(cells) + " |"


def number(value):
    """Three significant digits, and all of those before the point."""
    if value == 0:
        return "0"
    if abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.2f}" if abs(value) >= 1 else f"{value:.3f}"


def median(values):
    return statistics.median(values)


def with_spread(values):
    """The median, and behind it the lowest and the highest."""
    return f"{number(median(values))} " \
           f"({number(min(values))} to {number(max(values))})"


def ratio(ours, theirs):
    """Of two series that took turns, ours over theirs: the median of the
    pairs, and behind it the lowest and the highest."""
    return with_spread([a / b for a, b in zip(ours, theirs, strict=True)])
