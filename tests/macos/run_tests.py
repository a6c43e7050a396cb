"""Runs the tests of one architecture on Linux: run_tests.py [--all] ARCHITECTURE [PATTERN].

Runs the unit tests, compares launchlist with its golden outputs, and runs the end-to-end tests
with the staged bundle (stage.py). Skips the tests that skipped.txt names; --all runs those that are
only slow. PATTERN, a regular expression, selects tests by name.

For each test prints the processor time that it needed. Its output is kept in
build/macos/ARCHITECTURE/output.
"""

import json
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MACOS = ROOT / "build/macos"
# Only a test that hangs reaches these limits, even on a busy machine: the seconds for a whole test
# program, and for a condition that an end-to-end test waits for.
TIMEOUT = 3600
DEADLINE = "300"
# An emulated launcher needs as long for this many items as a native one for 20,000.
MANY = "400"


# Runs a command and appends the processor time that it used to the file KESTRANE_USAGE.
MEASURED = [
    *(shutil.which("python3"), "-IBc"),
    "import os, subprocess, sys; "
    "status = subprocess.run(sys.argv[1:]).returncode; "
    "print(sum(os.times()[:4]), file=open(os.environ['KESTRANE_USAGE'], 'a')); "
    "sys.exit(status if status >= 0 else 128 - status)",
]


def read_skipped(with_slow):
    """The names of the tests that are skipped; those of unit tests are GoogleTest patterns."""
    names, found = set(), set()
    for line in (ROOT / "tests/macos/skipped.txt").read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            name, _, reason = line.partition(": ")
            assert reason and name not in names, line
            names.add(name)
            if with_slow or not reason.startswith("slow: "):
                found.add(name)
    return found


class Tests:
    def __init__(self, architecture, pattern, skipped):
        self.architecture = architecture
        self.pattern = re.compile(pattern)
        self.skipped = skipped
        self.used = set()
        self.failed = []
        self.built = MACOS / architecture
        self.reports = MACOS / "reports" / architecture
        self.output = self.built / "output"
        self.output.mkdir(exist_ok=True)
        self.usage = self.built / "usage"
        self.seconds = 0.0

    def is_skipped(self, name):
        if name in self.skipped:
            self.used.add(name)
        return name in self.skipped

    def skipped_parts(self, prefix):
        """The tests of one program or file that are skipped."""
        names = [name for name in self.skipped if name.startswith(prefix + "/")]
        self.used.update(names)
        return [name[len(prefix) + 1 :] for name in names]

    def check(self, name, command, environment, directory=None):
        if not self.pattern.search(name):
            return
        self.usage.write_text("")
        with open(self.output / (name.replace("/", "_") + ".txt"), "w+b") as output:
            try:
                status = subprocess.run(
                    [str(part) for part in command],
                    env={**os.environ, "KESTRANE_USAGE": str(self.usage), **environment},
                    cwd=directory,
                    stdin=subprocess.DEVNULL,
                    stdout=output,
                    stderr=subprocess.STDOUT,
                    timeout=TIMEOUT,
                    check=False,
                ).returncode
            except subprocess.TimeoutExpired:
                status = f"none after {TIMEOUT} s"
            output.seek(0)
            text = output.read().decode(errors="replace")
        reports = self.take_reports()
        well = status == 0 and not reports
        seconds = sum(float(line.split()[0]) for line in self.usage.read_text().splitlines())
        self.seconds += seconds
        print(
            f"{'ok' if well else 'FAILED':6} {seconds:6.1f} s  {self.architecture} {name}",
            flush=True,
        )
        if not well:
            self.failed.append(name)
            print(text[-4000:], f"status {status}", *reports, sep="\n")

    def take_reports(self):
        """Returns and removes the model's reports. Any report makes the test fail."""
        found = []
        for file in sorted(self.reports.iterdir()):
            found.append(file.read_text(encoding="utf-8"))
            file.unlink()
        return found

    def run_unit_tests(self):
        for name, program, *arguments in self.programs():
            if self.is_skipped(name):
                continue
            parts = self.skipped_parts(name)
            if parts:
                arguments.append("--gtest_filter=-" + ":".join(parts))
            self.check(
                name,
                [*self.namespace(name), *self.interpreter(program), *arguments],
                {
                    "DYLD_LIBRARY_PATH": str(self.built / "qv7log"),
                },
            )

    def programs(self):
        """The name, the path and the arguments of each test that is a program of the tests."""
        command = ["ctest", "--test-dir", self.built, "--show-only=json-v1"]
        done = subprocess.run(command, check=True, capture_output=True)
        for test in json.loads(done.stdout)["tests"]:
            program, *arguments = test.get("command", [""])
            if program.startswith(str(self.built / "tests")):
                yield test["name"], program, *arguments

    def namespace(self, name):
        """The command prefix that keeps a test from signalling any process outside."""
        tests = ROOT / "tests"
        command = ["bwrap", "--unshare-pid", "--die-with-parent", "--new-session"]
        command += ["--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"]
        command += ["--bind", MACOS, MACOS, "--ro-bind", tests, tests]
        if re.match("tools_launchlist_list|launchlist_command_line", name):
            # The lists of these tests run /bin/sh, which launchlist expects to be for macOS.
            command += ["--ro-bind", MACOS / "Kestrane.app/Contents/MacOS/launchlist", "/bin/sh"]
        return command + MEASURED

    def interpreter(self, program):
        python = ROOT / "build/venv/macos/bin/python"
        return [
            python,
            "-IB",
            ROOT / "tests/macos/run.py",
            self.architecture,
            MACOS,
            program,
            program,
        ]

    def run_launchlist(self):
        launchlist = self.built / "run/stage/Kestrane.app/Contents/MacOS/launchlist"
        script = ROOT / "tests/tools/launchlist/command_line_test.py"
        name = "launchlist_command_line_test"
        python = shutil.which("python3")
        command = [
            *self.namespace(name),
            python,
            "-B",
            script,
            launchlist,
            *self.cases(name, script),
        ]
        self.check(name, command, {})

    def run_end_to_end(self):
        run = self.built / "run"
        environment = {
            "KESTRANE_STAGE": str(run / "stage"),
            "KESTRANE_HELPERS": str(run / "helpers"),
            "KESTRANE_OTHER_LOG": str(run / "other_log"),
            "KESTRANE_WRITABLE": str(MACOS),
            "KESTRANE_SYSTEM": "macOS",
            "KESTRANE_MANY": MANY,
            "KESTRANE_DEADLINE": DEADLINE,
        }
        for file in sorted((ROOT / "tests/end_to_end").glob("*_test.py")):
            name = f"end_to_end/{file.stem}"
            if self.is_skipped(name):
                continue
            command = [shutil.which("python3"), "-B", file, *self.cases(name, file)]
            self.check(name, command, environment)

    def cases(self, name, file):
        """Those of the file's cases that are not skipped."""
        skipped = self.skipped_parts(name)
        return [
            case
            for case in cases_of(file)
            if case not in skipped and case.split(".")[0] not in skipped
        ]


def cases_of(file):
    """The names of a file's cases, as the harness accepts them."""
    listing = (
        "import sys, os; sys.argv = ['x']; sys.path.insert(0, os.path.dirname(sys.argv[0]));"
        f"sys.path.insert(0, {str(file.parent)!r}); import runpy, unittest, importlib;"
        f"m = importlib.import_module({file.stem!r}); "
        "s = unittest.defaultTestLoader.loadTestsFromModule(m);"
        "f = lambda t: [t] if isinstance(t, unittest.TestCase) else sum(map(f, t), []);"
        "print(*(c.id().split('.', 1)[1] for c in f(s)), sep='\\n')"
    )
    python = shutil.which("python3")
    environment = {**os.environ, "KESTRANE_STAGE": "", "KESTRANE_HELPERS": ""}
    done = subprocess.run(
        [python, "-B", "-c", listing], env=environment, check=True, capture_output=True, text=True
    )
    return done.stdout.split()


def main():
    arguments = sys.argv[1:]
    run_slow = "--all" in arguments
    architecture, *pattern = (argument for argument in arguments if argument != "--all")
    tests = Tests(architecture, "".join(pattern), read_skipped(with_slow=not run_slow))
    tests.reports.mkdir(parents=True, exist_ok=True)
    tests.take_reports()
    tests.run_unit_tests()
    tests.run_launchlist()
    tests.run_end_to_end()
    unknown = tests.skipped - tests.used
    if unknown:
        tests.failed += unknown
        print("skipped.txt names tests that do not exist:", *sorted(unknown), sep="\n  ")
    print(
        f"{architecture}: {len(tests.failed)} failed; skipped: {len(tests.used)}; "
        f"{tests.seconds:.0f} s of processor time"
    )
    return 1 if tests.failed else 0


if __name__ == "__main__":
    sys.exit(main())
