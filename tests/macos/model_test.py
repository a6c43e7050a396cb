"""Runs posix_test.c on the model of macOS, and on Linux."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
MACOS = os.path.join(os.path.dirname(os.path.dirname(HERE)), "build/macos")
# Signals must not reach any process outside.
NAMESPACE = [
    *("bwrap", "--unshare-pid", "--die-with-parent", "--new-session", "--ro-bind", "/", "/"),
    *("--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp", "--bind", MACOS, MACOS),
]


class Posix(unittest.TestCase):
    def passes(self, *command):
        done = subprocess.run(
            [*NAMESPACE, *command], capture_output=True, text=True, check=False, timeout=600
        )
        self.assertEqual((0, ""), (done.returncode, done.stdout + done.stderr))

    def test_on_the_model(self):
        for architecture in ("arm64", "x86_64"):
            with self.subTest(architecture):
                program = f"{MACOS}/guest/{architecture}/posix_test"
                self.passes(
                    *(sys.executable, "-IB", f"{HERE}/run.py", architecture, MACOS),
                    *(program, program),
                )

    def test_on_linux(self):
        with tempfile.TemporaryDirectory(dir=MACOS) as directory:
            program = f"{directory}/posix_test"
            command = [shutil.which("cc"), "-D_GNU_SOURCE", "-pthread", "-Wall", "-o", program]
            subprocess.run([*command, f"{HERE}/posix_test.c"], check=True)
            self.passes(program)


if __name__ == "__main__":
    unittest.main()
