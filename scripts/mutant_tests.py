# SPDX-License-Identifier: MIT
"""Builds and tests mutants in copies of the sources; used by scripts/mutate."""

import fcntl
import filecmp
import hashlib
import os
import re
import shutil
import signal
import subprocess
import threading
import time
from dataclasses import dataclass

# Optimised, so that many mutants without effect have the same code as the original. Assertions stay on.
CONFIGURATION = [
    "-DCMAKE_BUILD_TYPE=None",
    "-DCMAKE_CXX_FLAGS=-O2",
    "-DVELK_SHORT_TESTS=ON",
    # After a change in a shared library, only that library is linked.
    "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
    # The build must not run a mutant, because nothing limits it there.
    "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
    "-DHELP2MAN=OFF",
]

LIMIT_FACTOR = 5
LIMIT_EXTRA_SECONDS = 10
MEMORY_KIB = 4 << 20
STACK_KIB = 1024  # a thousand threads fit into the memory
FILE_BLOCKS = 128 << 11  # of 512 bytes: 128 MiB


@dataclass(frozen=True)
class Stage:
    name: str
    target: str
    arguments: tuple
    isStatic: bool = False  # linked with the archive, so it does not use the shared libraries

    def command(self, tree):
        if self.target == "all":
            return ["ctest", "--test-dir", str(tree.build), *self.arguments]
        return [str(tree.bin / self.target), *self.arguments]


# The fast ones first. "programs" runs all tests except GoogleTest's, whose names have a dot.
SLOW_UNITS = "Threads.*:Client.*"
STAGES = [
    Stage("units", "velk-tests", ("--gtest_fail_fast", f"--gtest_filter=-{SLOW_UNITS}")),
    Stage("simulation", "velkcan-simulate", ("--seeds", "300"), True),
    Stage("failures", "velk-failures", ("--gtest_fail_fast", "--gtest_filter=-*/allocation"), True),
    Stage("units", "velk-tests", ("--gtest_fail_fast", f"--gtest_filter={SLOW_UNITS}")),
    Stage("failures", "velk-failures", ("--gtest_fail_fast", "--gtest_filter=*/allocation"), True),
    Stage("programs", "all", ("--stop-on-failure", "-E", r"\.|^vcan$")),
    Stage("simulation", "velkcan-simulate", ("--seeds", "10000"), True),
]

FAILURES = [
    re.compile(r"\[  FAILED  \] (\S+?),? "),  # at the end of a test
    re.compile(r"\[ RUN      \] (\S+)\n(?!.*\[       OK \])", re.DOTALL),  # the last, at a crash
    re.compile(r"Test +#\d+: (\S+) .*\*\*\*"),
    re.compile(r"Start +\d+: (\S+)\n(?!.*Test +#)", re.DOTALL),
    re.compile(r"^(seed \d+: .{1,60})", re.MULTILINE),
    re.compile(r"(signal \d+ in seed \d+)"),
]

# ---- processes

running = set()
runningLock = threading.Lock()


def stopAll():
    """Ends all tests. Keeps the lock, so that no other test starts."""
    runningLock.acquire()
    for process in running:
        kill(process)


def kill(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def isolation():
    """@return a prefix for a command, so that all its processes end with it."""
    for user in ([], ["--user", "--map-root-user"]):
        command = ["unshare", *user, "--pid", "--fork", "--kill-child", "--mount-proc"]
        try:
            if subprocess.run([*command, "true"], stderr=subprocess.DEVNULL).returncode == 0:
                return command
        except FileNotFoundError:
            break
    return []  # then only its process group ends with it


def limited(command, seconds):
    """A shell leads the namespace: the first process in it ignores most signals, even an abort."""
    script = (
        f"ulimit -c 0 && ulimit -s {STACK_KIB} && ulimit -v {MEMORY_KIB} && "
        f'ulimit -f {FILE_BLOCKS} && ulimit -t {int(seconds) * 2 + 1} && "$@"; exit $?'
    )
    return ["sh", "-c", script, "sh", *command]


class Tree:
    """A copy of the sources and its build."""

    isolated = None

    def __init__(self, root, number):
        self.root = root
        folder = root / "build/mutate" / str(number)
        self.source = folder / "source"
        self.build = folder / "build"
        self.bin = self.build / "bin"
        self.temporary = folder / "tmp"
        folder.mkdir(parents=True, exist_ok=True)
        self.lock = open(folder / "lock", "w")  # held as long as this object lives
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise RuntimeError(f"another run uses {folder}") from None
        self.original = {}  # the digest of each stage without a mutant

    def prepare(self):
        """Copies changed files and builds them."""
        wanted = set(self.sources())
        self.source.mkdir(exist_ok=True)
        for path in [path for path in self.source.rglob("*") if not path.is_dir()]:
            if path.relative_to(self.source) not in wanted:
                path.unlink()
        for file in wanted:
            old, new = self.root / file, self.source / file
            # With a new time: the file that replaces a mutant has to be newer than its objects.
            if not new.exists() or not filecmp.cmp(old, new, shallow=False):
                new.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(old, new)
                shutil.copymode(old, new)
        self.configure()
        self.ninja("all", check=True)
        self.original = {stage: self.digest(stage) for stage in STAGES}

    def sources(self):
        for path in self.root.iterdir():
            if path.name != "build" and not path.name.startswith("."):
                files = path.rglob("*") if path.is_dir() else [path]
                yield from (file.relative_to(self.root) for file in files if file.is_file())

    def configure(self):
        command = ["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", *CONFIGURATION]
        command += [f"-DCMAKE_RUNTIME_OUTPUT_DIRECTORY={self.bin}"]
        if subprocess.run(command, capture_output=True).returncode != 0:
            shutil.rmtree(self.build, ignore_errors=True)  # it may be from a tree that was moved
            subprocess.run(
                command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=True
            )

    def ninja(self, target, check=False):
        result = subprocess.run(
            ["ninja", "-C", self.build, target],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=check,
        )  # fmt: skip
        return result.returncode == 0

    def digest(self, stage):
        """@return hashes of the programs and libraries that a stage uses."""
        isOne = stage.target != "all"
        programs = [self.bin / stage.target] if isOne else sorted(self.bin.iterdir())
        libraries = [] if stage.isStatic else sorted(self.build.rglob("lib*.so"))
        return [hashlib.sha256(path.read_bytes()).digest() for path in programs + libraries]

    def test(self, stage, limit):
        """@return the failure or None, and the seconds."""
        shutil.rmtree(self.temporary, ignore_errors=True)
        self.temporary.mkdir()
        output = self.temporary / "output"
        folder = f"{self.temporary}/"
        begin = time.monotonic()
        with open(output, "w") as stream, runningLock:
            process = subprocess.Popen(
                Tree.isolated + limited(stage.command(self), limit), cwd=folder,
                env={**os.environ, "TMPDIR": folder, "TEST_TMPDIR": folder},
                stdin=subprocess.DEVNULL, stdout=stream, stderr=subprocess.STDOUT,
                start_new_session=True,
            )  # fmt: skip
            running.add(process)
        try:
            status = process.wait(limit)
        except subprocess.TimeoutExpired:
            status = None
        finally:
            kill(process)  # also processes that it left behind
            process.wait()
            with runningLock:
                running.discard(process)
        seconds = time.monotonic() - begin
        if status == 0:
            return None, seconds
        return failureText(stage, status, output.read_text(errors="replace")), seconds


def failureText(stage, status, output):
    name = next((m[1] for m in (pattern.search(output) for pattern in FAILURES) if m), "")
    if status is None:
        return f"{stage.name}: {name} hung"
    return f"{stage.name}: {name or f'status {status}'}"


class Tests:
    def __init__(self):
        Tree.isolated = isolation()
        self.limits = dict.fromkeys(STAGES, 0)

    def measure(self, tree):
        """Sets the limits from a run without a mutant. @return its failure, or None."""
        for stage in STAGES:
            failure, seconds = tree.test(stage, 3600)
            if failure:
                return failure
            limit = LIMIT_FACTOR * seconds + LIMIT_EXTRA_SECONDS
            self.limits[stage] = max(self.limits[stage], limit)
        return None

    def judge(self, tree, mutant):
        """@return the verdict on a mutant, and the failed test."""
        path = tree.source / mutant.file
        original = path.read_text()
        path.write_text(mutant.source)
        try:
            return self.firstFailure(tree)
        finally:
            path.write_text(original)

    def firstFailure(self, tree):
        differs = False
        for stage in STAGES:
            if not tree.ninja(stage.target):
                return "not compiled", ""
            if tree.digest(stage) != tree.original[stage]:
                differs = True
                failure, _ = tree.test(stage, self.limits[stage])
                if failure:
                    return "caught", failure
        return ("survived", "") if differs else ("same code", "")
