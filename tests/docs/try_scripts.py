"""What README and docs/ tell of scripts/: as it is told, or for a short time, or
by .ci/run. Started by scripts/check-documents.sh."""

import re
import shutil
import subprocess

import pytest

from documents import TOP, blocks, chapter, fill, lines_of

BUILD = TOP / "build"
# Fuzzing writes into the tree: a copy, which stays for the next time.
COPY = TOP / ".cache/documents/tree"
CI = (TOP / ".ci/run").read_text()
# What takes long, made short.
SHORT = {
    "scripts/bench.sh": "scripts/bench.sh --quick answers",
    "scripts/coverage.sh": "scripts/coverage.sh age_out_test",
    "scripts/fuzz.sh": "scripts/fuzz.sh 1 qsh_fuzzer",
    "scripts/fuzz.sh --minimise": "scripts/fuzz.sh --minimise qsh_fuzzer",
    "scripts/soak.sh": "scripts/soak.sh 1000",
}


def run(command, folder=TOP, status=0):
    done = subprocess.run(["bash", "-c", command], cwd=folder, text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=900)
    assert done.returncode == status, f"{command}\n{done.stdout[-4000:]}"
    return done.stdout


def is_step_of_ci(command):
    name = command.removeprefix("scripts/")
    return re.search(rf'"\$scripts/{re.escape(name)}"( |$)', CI, re.M)


def scripts_of(block):
    """Its lines without what is said behind them."""
    return [re.sub(r"\s+#.*", "", line) for line in lines_of(block)]


def routers_can_be_had():
    return subprocess.run(["unshare", "--mount", "--net", "true"],
                          capture_output=True).returncode == 0


@pytest.fixture(scope="module")
def copy():
    COPY.mkdir(parents=True, exist_ok=True)
    run(f"git ls-files -z | xargs -0 cp -a --parents -t '{COPY}'")
    return COPY


def test_the_demonstration_and_the_tests():
    with chapter("README.md", "libconfigcopymib") as told:
        demo, test = scripts_of(told.take("scripts/demo.sh "))
        keep = told.take("scripts/demo.sh --keep")
        routers = told.take("scripts/demo.sh --frr")
    assert "All of it was checked." in run(demo)
    if routers_can_be_had():
        run(routers)
    assert is_step_of_ci(test)
    go_on, end = (block for _, block in blocks(
        run(keep).partition("To go on by hand:")[2].splitlines()))
    try:
        assert "hostname rack4-secure" in run(go_on)
    finally:
        run(end)


def test_besides_the_tests(copy):
    with chapter("README.md", "What is where") as told:
        for command in scripts_of(told.take("scripts/")):
            # This one is running.
            if is_step_of_ci(command):
                continue
            run(SHORT[command], copy if "fuzz" in command else TOP)


def test_steps_of_ci_are_told_from_others():
    assert is_step_of_ci("scripts/test.sh")
    assert is_step_of_ci("scripts/check-powerpc.sh")
    assert not is_step_of_ci("scripts/soak.sh")


def test_powerpc():
    """Its commands by hand are run by scripts/check-powerpc.sh."""
    with chapter("docs/powerpc.md", "PowerPC") as told:
        assert is_step_of_ci(told.take("scripts/"))


def test_the_suite_for_makers():
    """The commands before this one are run by tests/install."""
    with chapter("docs/platform.md", "Testing it") as told:
        told.take("cmake")
        assert "100% tests passed" in run(told.take("ctest"))


def test_fuzzing(copy):
    with chapter("docs/fuzzing.md", "Fuzzing") as told:
        every, some = scripts_of(told.take("scripts/fuzz.sh"))
        run(SHORT[every], copy)
        said = run(fill(some, SECONDS=1), copy)
        for name in some.split()[2:]:
            assert re.search(rf"^{name} +\d+ runs .* 0 found$", said, re.M)
        assert "100% tests passed" in run(told.take("ctest"), BUILD)
    with chapter("docs/fuzzing.md", "Inputs to start from") as told:
        run(SHORT[told.take("scripts/fuzz.sh")], copy)


def test_what_a_fuzzer_found(copy):
    """An input that once failed; it does not any more, which minimising tells."""
    once = sorted((TOP / "tests/fuzz/crashes/pdu_fuzzer").iterdir())[0]
    found = copy / "build-fuzz/fuzzing/pdu_fuzzer.crashes/crash-1"
    run("scripts/fuzz.sh 1 pdu_fuzzer", copy)
    shutil.copy(once, found)
    with chapter("docs/fuzzing.md", "When one finds something") as told:
        again = fill(told.take("build-fuzz"), CRASH="crash-1")
        assert "Executed" in run(again, copy)
        minimise, keep = lines_of(fill(told.take("build-fuzz"),
                                       CRASH="crash-1"))
        assert "did not crash" in run(minimise, copy, status=1)
        shutil.copy(once, copy / "small")
        run(keep, copy)
    found.unlink()
    kept = copy / "tests/fuzz/crashes/pdu_fuzzer/what-it-was"
    assert kept.read_bytes() == once.read_bytes()
    kept.unlink()
