"""What `cmake --install` gives: everything in its place, nothing of the build
tree, and two components."""

import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "docs"))
from documents import chapter, fill  # noqa: E402

BUILD = pathlib.Path(os.environ["XF_TEST_BUILD"])


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          errors="replace",
                          **options).stdout


def install(folder, component):
    output("cmake", "--install", str(BUILD), "--component", component,
           env={**os.environ, "DESTDIR": str(folder)})
    return folder


@pytest.fixture(scope="module")
def agent(tmp_path_factory):
    return install(tmp_path_factory.mktemp("agent"), "agent")


@pytest.fixture(scope="module")
def dev(tmp_path_factory):
    return install(tmp_path_factory.mktemp("dev"), "dev")


def one(folder, name):
    found = list(folder.rglob(name))
    assert len(found) == 1, found
    return found[0]


def files(folder):
    return {each for each in folder.rglob("*") if not each.is_dir()}


def test_the_agent_side_is_whole(agent):
    module = one(agent, "libconfigcopymib.so")
    assert module.parent.name == "dlmod"
    one(agent, "libxfplatform.so.1")
    one(agent, "XF-CONFIG-COPY-MIB.txt")
    one(agent, "XF-COPY-HISTORY-MIB.txt")
    one(agent, "xfprocd.service")
    programs = one(agent, "brim") / "bin"
    assert {each.name for each in programs.iterdir()} >= {
        "ovan-tftp", "procd", "qsh", "scp.expect", "sftp.expect",
        "snmp.ftp.expect", "xfenrol", "xfsettings", "xfvrf"}
    assert all(os.access(each, os.X_OK) for each in programs.iterdir())
    for name in ("qsh", "xfenrol", "xfvrf"):
        assert (one(agent, "sbin") / name).resolve() == programs / name


def test_the_module_looks_for_a_maker_first(agent):
    library = one(agent, "libxfplatform.so.1")
    dynamic = output("readelf", "-d", str(one(agent, "libconfigcopymib.so")))
    path = re.search(r"\(RUNPATH\).*\[(.*)\]", dynamic)[1].split(":")
    own = "/" + str(library.parent.relative_to(agent))
    assert path[0] == path[1] + "/maker"
    assert path[1] == own and "(RPATH)" not in dynamic


def test_nothing_is_left_of_the_build_tree(agent, dev):
    """Neither library paths nor texts; debug information is not looked at."""
    for file in files(agent) | files(dev):
        if file.is_symlink():
            continue
        if file.read_bytes()[:4] != b"\x7fELF":
            assert str(BUILD).encode() not in file.read_bytes(), file
            continue
        dynamic = output("readelf", "-d", str(file))
        assert str(BUILD) not in dynamic, file
        assert str(BUILD) not in output("readelf", "-p", ".rodata", str(file))


def test_the_two_components_share_nothing(agent, dev):
    assert not {each.relative_to(agent) for each in files(agent)} & \
        {each.relative_to(dev) for each in files(dev)}


def maker_environment(dev):
    """Where a maker's tools find what is installed elsewhere here."""
    return {**os.environ, "CMAKE_BUILD_TYPE": "Debug",
            "CMAKE_BUILD_PARALLEL_LEVEL": "2",
            "xfplatform_DIR": str(one(dev, "xfplatform-config.cmake").parent),
            "PKG_CONFIG_PATH": str(one(dev, "xfplatform.pc").parent)}


def test_a_maker_builds_a_library_with_the_other(dev, tmp_path):
    """As docs/platform.md has it, with every header; it has the name and the
    exports that the module asks for, and goes where that looks."""
    environment = maker_environment(dev)
    with chapter("docs/platform.md", "Building and installing") as told:
        lines = told.take("find_package").replace("...", "maker.cpp")
        place = output("bash", "-c", told.take("pkg-config"), env=environment)
    headers = sorted(each.name for each in (one(dev, "platform")).iterdir())
    assert len(headers) > 10
    (tmp_path / "CMakeLists.txt").write_text(
        f"cmake_minimum_required(VERSION 3.25)\nproject(maker CXX)\n{lines}\n")
    (tmp_path / "maker.cpp").write_text(
        "".join(f'#include "platform/{each}"\n' for each in headers) +
        "void snmp_heartbeat_send(void) {}\nvoid not_asked_for(void) {}\n")
    output("cmake", "-S", str(tmp_path), "-B", str(tmp_path / "build"),
           env=environment)
    output("cmake", "--build", str(tmp_path / "build"))
    output("cmake", "--install", str(tmp_path / "build"),
           env={**environment, "DESTDIR": str(tmp_path / "installed")})
    library = one(tmp_path / "installed", "libxfplatform.so.1")
    assert str(library.parent).endswith(place.strip())
    exported = output("nm", "-D", "--defined-only", str(library)).split()[2::3]
    assert exported == ["snmp_heartbeat_send"]
    assert "[libxfplatform.so.1]" in output("readelf", "-d", str(library))


def test_a_maker_tests_a_library_with_the_other(agent, dev, tmp_path):
    """Builds the suite as docs/platform.md has it and runs a part of it. The
    rest of it is the same as in tests/platform."""
    suite = one(dev, "platform-tests")
    library = one(agent, "libxfplatform.so.1")
    environment = {**maker_environment(dev),
                   "GTEST_FILTER": "Library.*:Ordset*:Netaddr.TextAndBack"}

    def run(command, **more):
        return output("bash", "-ec", command, cwd=tmp_path,
                      env={**environment, **more})
    with chapter("docs/platform.md", "Testing it") as told:
        command = fill(told.take("cmake"), SHARE=suite.parent, LIBRARY=library)
        told.take("ctest")  # by scripts/check-documents.sh
    found = run(command), run("platform-tests/platform_tests",
                              LD_LIBRARY_PATH=str(library.parent))
    for each in found:
        assert re.search(r"PASSED  \] 13 tests", each), each


def test_pkg_config_names_the_headers(dev):
    where = output("pkg-config", "--variable=includedir", "xfplatform", env={
        **os.environ, "PKG_CONFIG_PATH": str(one(dev, "xfplatform.pc").parent)})
    assert (dev / where.strip("/\n") / "platform/trc.h").exists()


def test_procd_tells_when_it_is_ready(agent, tmp_path):
    """systemd starts what comes after it then, and not before."""
    procd = one(agent, "procd")
    if "libsystemd" not in output("readelf", "-d", str(procd)):
        pytest.skip("built without libsystemd")
    (tmp_path / "state").mkdir(mode=0o700)
    (tmp_path / "run").mkdir(mode=0o700)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as told:
        told.bind(str(tmp_path / "notify"))
        told.settimeout(20)
        process = subprocess.Popen([procd], env={
            "NOTIFY_SOCKET": str(tmp_path / "notify"),
            "XF_RUN_DIRECTORY": str(tmp_path / "run"),
            "XF_STATE_DIRECTORY": str(tmp_path / "state")})
        try:
            assert told.recv(4096) == b"READY=1"
            # It is there for requests by then.
            assert {each.name for each in (tmp_path / "run").iterdir()
                    if each.is_socket()}
        finally:
            process.terminate()
            assert process.wait(20) == 0


def test_what_a_unit_opens_is_made_before(agent):
    """systemd opens standard error before it would make a directory for it."""
    made = re.findall(r"^d (\S+)", one(agent, "xfplatform.conf").read_text(),
                      re.M)
    drop_in = one(agent, "config-copy.conf").read_text()
    for path in re.findall(r"^Standard\w+=append:(\S+)", drop_in, re.M):
        assert os.path.dirname(path) in made


@pytest.mark.skipif(not shutil.which("systemd-analyze"),
                    reason="no systemd on this machine")
def test_units_are_verified(agent):
    """Only what is ours is looked at; the machine's own units are used too."""
    unit = one(agent, "xfprocd.service")
    done = subprocess.run(["systemd-analyze", "--man=no", "verify", str(unit)],
                          capture_output=True, text=True)
    told = [each for each in (done.stdout + done.stderr).splitlines()
            if "xfprocd" in each and "not executable" not in each]
    assert told == []
