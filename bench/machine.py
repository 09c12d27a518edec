"""What the figures were measured on."""

import os
import pathlib
import platform
import re
import subprocess
import time


def first(pattern, file):
    found = re.search(pattern, pathlib.Path(file).read_text(), re.MULTILINE)
    return found[1].strip() if found else "unknown"


def package(name):
    return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", name],
                          capture_output=True, text=True).stdout or "none"


def shape():
    """A paragraph: the machine, its system, and how busy others keep it."""
    processor = first(r"^model name\s*: (.*)", "/proc/cpuinfo")
    gib = int(first(r"^MemTotal:\s*(\d+)", "/proc/meminfo")) / (1 << 20)
    system = first(r'^PRETTY_NAME="(.*)"', "/etc/os-release")
    return (
        f"Measured on {time.strftime('%Y-%m-%d', time.gmtime())} by "
        "`scripts/bench.sh`, which writes this file: "
        f"{os.cpu_count()} processors ({processor}), {gib:.0f} GiB, {system}, "
        f"Linux {platform.release()}, Net-SNMP {package('snmpd')}, curl "
        f"{package('curl')}; load average before the run "
        f"{os.getloadavg()[0]:.1f}. A figure is the median of its runs, and "
        "behind it the lowest and the highest; what is compared took turns.")
