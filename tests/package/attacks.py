"""What somebody who has taken over the agent's user could try with xfvrf, the one
program of the package with a capability."""

XFVRF = "/usr/libexec/libconfigcopymib/brim/bin/xfvrf"
NAMES = ["../netns/red", "../../proc/self/ns/net", "/proc/self/ns/net", ".",
         "red/", "red/../red", "-red", ""]
NUMBERS = ["", " 1", "+1", "1x", "0x1", "99999999999999999999"]
KINDS = ("mnt", "pid", "user", "uts", "ipc", "cgroup")


def try_xfvrf(root, number):
    """There is a namespace `red` with that number."""
    its_rights(root)
    names(root)
    environment(root, number)
    what_it_runs(root, number)
    user_namespace(root, number)


def refused(root, arguments, status):
    done = root.as_agent(f"xfvrf {arguments}", check=False)
    assert done.returncode == status, (arguments, done)


def its_rights(root):
    shown = root.run(f"stat -c '%U %G %a' {XFVRF}; getcap {XFVRF}")
    assert shown == f"root Debian-snmp 750\n{XFVRF} cap_sys_admin=ep\n", shown
    # Nothing else of the package has one, and nobody else may put it elsewhere.
    others = root.run("dpkg -L snmpd-config-copy | while read -r each; do "
                      '[ -L "$each" ] || getcap "$each"; done')
    assert others == f"{XFVRF} cap_sys_admin=ep\n", others
    for folder in ("/usr/libexec/libconfigcopymib/brim/bin", "/run/netns"):
        assert root.run(f"stat -c '%U %A' {folder}").startswith("root drwxr-x")


def names(root):
    """Only what ip netns made, by its name."""
    for each in NAMES:
        refused(root, f"--id '{each}'", 126)
    for each in NUMBERS:
        refused(root, f"'{each}' /bin/true", 125)
    refused(root, "-1 /bin/true", 126)
    root.run("cd /run/netns; ln -s red link; ln -s /proc/self/ns/net own; "
             "mkfifo pipe; touch file uts; mkdir folder; "
             "mount --bind /proc/self/ns/uts uts")
    try:
        for each in ("link", "own", "pipe", "file", "folder", "uts"):
            refused(root, f"--id {each}", 126)
    finally:
        root.run("cd /run/netns; umount uts; rm link own pipe file uts; "
                 "rmdir folder")


def environment(root, number):
    """Neither ours nor the loader's says anything to it."""
    root.as_agent("sh -c 'echo management_vrf red >/tmp/own.conf'")
    for each in ("XF_CONFIG=/tmp/own.conf", "XF_MANAGEMENT_VRF=red"):
        shown = root.as_agent(f"env {each} xfvrf --id management")
        assert shown == "1\n", shown
    root.run("rm /tmp/own.conf")
    loads = "env LD_DEBUG=libs"
    assert "find library" in root.as_agent(f"{loads} /bin/true 2>&1")
    assert root.as_agent(f"{loads} xfvrf {number} /bin/true 2>&1") == ""
    # Nor do descriptors that are not there.
    root.as_agent(f"sh -c 'xfvrf {number} /bin/true <&- >&- 2>&-'")


def what_it_runs(root, number):
    """It is in the namespace and has nothing else that the caller had not."""
    there = f"xfvrf {number}"
    for which in ("Inh", "Prm", "Eff", "Amb"):
        shown = root.as_agent(f"{there} grep Cap{which} /proc/self/status")
        assert int(shown.split()[1], 16) == 0, shown
    links = " ".join(f"/proc/self/ns/{each}" for each in KINDS)
    assert root.as_agent(f"{there} readlink {links}") == \
        root.as_agent(f"readlink {links}")
    assert root.as_agent(f"{there} id") == root.as_agent("id")
    done = root.as_agent(f"{there} ip link set lo down", check=False)
    assert done.returncode != 0 and "not permitted" in done.stderr, done


def user_namespace(root, number):
    """A capability that counts in a user namespace of one's own only."""
    inside = root.as_agent("unshare -Ur true", check=False)
    if inside.returncode != 0:
        print("(no user namespaces) ", end="")
        return
    done = root.as_agent(f"unshare -Ur xfvrf {number} /bin/true", check=False)
    assert done.returncode == 127 and "not permitted" in done.stderr, done
