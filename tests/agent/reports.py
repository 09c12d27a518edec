"""What was told of a copy, see host/history/report.h."""


def begin_report(file):
    file.write_bytes(b"")
    file.chmod(0o600)


def read_report(file):
    """The fields of all records; of each the first one that was told, and the
    largest number of octets."""
    report = {}
    for line in file.read_text().splitlines():
        for field in filter(None, line[9:].split("\t")):
            name, _, value = field.partition("=")
            if name == "octets":
                value = max(int(value), report.get(name, 0))
                report[name] = value
            report.setdefault(name, value)
    return report
