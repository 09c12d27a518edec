"""What scripts/lib.sh does with the services of the packages that it installs."""

import re
import subprocess

from documents import TOP

# Nothing is installed: what root would be asked to do is printed.
DRY_RUN = """\
. scripts/lib.sh
systemctl() { :; }
as_root() { echo "$*" >&3; }
install_without_starting "${packages[@]}" 3>&1 >/dev/null
"""


def disabled():
    done = subprocess.run(["bash", "-c", DRY_RUN], cwd=TOP, check=True,
                          capture_output=True, text=True, timeout=20)
    return set(re.findall(r"^systemctl disable (\S+)$", done.stdout, re.M))


def test_services_are_disabled_by_the_names_that_systemd_has():
    assert {"snmpd.service", "snmptrapd.socket", "tftpd-hpa.service",
            "vsftpd.service", "ssh.service", "frr.service"} <= disabled()


def test_readme_names_the_packages():
    text = (TOP / "README.md").read_text()
    named = re.search(r"The packages of\n([^.]*) bring\s+services", text)[1]
    lib = (TOP / "scripts/lib.sh").read_text()
    daemons = re.search(r"^daemons=\(([^)]*)\)", lib, re.M)[1]
    assert re.findall(r"`([^`]+)`", named) == daemons.split()
